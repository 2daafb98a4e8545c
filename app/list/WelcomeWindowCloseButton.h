// The close button of the VM list, which lights up under the pointer.
#pragma once

#include <QAbstractButton>

class TrackingArea;

class WelcomeWindowCloseButton : public QAbstractButton
{
    Q_OBJECT

public:
    explicit WelcomeWindowCloseButton(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    // Makes the tracking area anew for the current bounds.
    void updateTrackingAreas();
    const TrackingArea *boundsTrackingArea() const { return m_boundsTrackingArea; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void mouseEntered();
    void mouseExited();

    TrackingArea *m_boundsTrackingArea = nullptr;
};
