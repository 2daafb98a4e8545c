// The part of a window over which the pointer's coming and going is told.
#pragma once

#include <QObject>
#include <QRect>

class QWidget;

// Covers the bounds that a widget has when the area is made; a resized widget needs a new one.
// Active whether or not the window is. The pointer counts as inside at first, so that leaving is
// told even when no entering was seen.
class TrackingArea : public QObject
{
    Q_OBJECT

public:
    // The widget owns the area until it is destroyed.
    explicit TrackingArea(QWidget *widget);

    QRect rect() const { return m_rect; }

Q_SIGNALS:
    void mouseEntered();
    void mouseExited();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    const QRect m_rect;
    bool m_inside = true;
};
