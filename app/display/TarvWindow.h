// A window that shows a VM's screen.
#pragma once

#include "app/display/displaygeometry.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

class FullScreenMenu;
class MainMenu;
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
    ~TarvWindow() override;

    TarvDisplayView *displayView() const { return m_view; }
    // The content is what the view covers; the menu bar counts to the frame, as title bar and
    // borders do.
    QSizeF contentSize() const;
    QSizeF frameSizeInPoints() const;
    // The size of the window in a frame of that size, and the other way round.
    QSize sizeInFrame(QSizeF frame) const;
    QSizeF frameAround(QSize size) const;
    // What the content does not have of the window's size.
    QSize menuSize() const;

    // Enters or leaves full screen where the guest fills it, or after the user's consent.
    Q_INVOKABLE void toggleFullScreen(QObject *sender);
    // As far as the window knows; the window system may still be about to show it.
    bool isInFullScreen() const { return m_inFullScreen; }
    // How full screen is entered; before fullScreenWillChange returns.
    void setPresentation(PresentationOptions options) { m_presentation = options; }
    // Gives the keyboard to the menu bar, with its first menu open, also in full screen.
    void openMenu();

Q_SIGNALS:
    // Around each change, whoever asked for it. The second comes once the window has the size that
    // goes with it.
    void fullScreenWillChange(bool enters);
    void fullScreenDidChange(bool entered);

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void changeFullScreen();
    void beginFullScreenChange(bool enters);

    QPointer<TarvDisplayView> m_view;
    MainMenu *m_menu;
    std::unique_ptr<FullScreenMenu> m_fullScreenMenu; // in full screen
    PresentationOptions m_presentation = 0;
    bool m_inFullScreen = false;
    QTimer m_settling; // runs while full screen is entered or left
};
