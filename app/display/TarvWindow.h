// A window that shows a VM's screen.
#pragma once

#include <QMainWindow>
#include <QPointer>

class TarvDisplayView;

class TarvWindow : public QMainWindow
{
    Q_OBJECT

public:
    // Which interface file the window comes from.
    enum class Interface
    {
        tarvWindow,          // a display with a picture that it shares
        virtualMachineWindow // a display without
    };

    explicit TarvWindow(Interface interface);

    TarvDisplayView *displayView() const { return m_view; }
    // The content is what the view covers; the menu bar counts to the frame, as title bar and
    // borders do.
    QSizeF contentSize() const;
    QSizeF frameSizeInPoints() const;
    // Gives the frame a size; the origin stays.
    void setFrameSize(QSizeF frame);

private:
    QSize menuSize() const;

    QPointer<TarvDisplayView> m_view;
};
