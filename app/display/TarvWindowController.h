// The controller of a window that shows one screen of a running VM.
#pragma once

#include "app/display/GuestResolution.h"
#include "app/display/MachineControl.h"
#include "app/display/OpenScreen.h"
#include "app/display/PasteboardSharing.h"
#include "app/display/WindowFrame.h"
#include "app/kit/WindowController.h"
#include "tarvhv/display/TarvDisplay.h"

#include <memory>

class TarvWindow;
struct DisplayMenuState;

// Answers the menu's actions and joins the rooms of a display window: the screen that it shows
// (OpenScreen), the window's size (WindowFrame) and the guest's (GuestResolution), the pasteboard
// that both share (PasteboardSharing) and the VM behind it (MachineControl). Closes its window when
// the VM stops.
class TarvWindowController : public WindowController, public TarvDisplayDelegate
{
    Q_OBJECT

public:
    explicit TarvWindowController(std::unique_ptr<TarvDisplay> display);
    ~TarvWindowController() override;

    // Null once the window has closed.
    TarvDisplay *display() const { return m_screen.display(); }
    TarvDisplayView *view() const { return m_screen.view(); }

    bool allowsLiveResize() const;
    bool liveResize() const;
    void setLiveResize(bool live);
    bool locksKeyboard() const;
    void setLocksKeyboard(bool locked);
    // Whether the guest's pasteboard and the host's are kept the same.
    bool pasteBoardEnabled() const;

    void showWindow() override;
    // Asks the guest for the window's size.
    void adjustResolution();
    // Gives the window the guest's size.
    void adjustFrameAnimate(bool animate);
    // The frame size that a user's resizing to `proposed` comes to.
    QSizeF windowWillResize(QSizeF proposed) const;
    // The user is done resizing.
    void windowDidEndLiveResize();

    // What becomes of a wish for full screen now.
    FullScreenStep fullScreenStep() const;
    // Around each change into and out of full screen, in this order.
    void windowWillEnterFullScreen();
    void windowDidEnterFullScreen();
    void windowWillExitFullScreen();
    void windowDidExitFullScreen();
    // What full screen leaves of the desktop, of the options proposed.
    PresentationOptions
    windowWillUseFullScreenPresentationOptions(PresentationOptions proposed) const;
    // Whether any key of the host's keyboard is down.
    bool isKeyPressed() const;

    Q_INVOKABLE bool validateMenuItem(QAction *item) override;
    Q_INVOKABLE void zoomIn(QObject *sender);
    Q_INVOKABLE void zoomOut(QObject *sender);
    Q_INVOKABLE void zoomImageToActualSize(QObject *sender);
    Q_INVOKABLE void zoomImageToHalfSize(QObject *sender);
    Q_INVOKABLE void useHiDPI(QObject *sender);
    Q_INVOKABLE void setResolution(QObject *sender);
    Q_INVOKABLE void toggleLiveResize(QObject *sender);
    Q_INVOKABLE void lockKeyboard(QObject *sender);
    Q_INVOKABLE void copy(QObject *sender);
    Q_INVOKABLE void paste(QObject *sender);
    Q_INVOKABLE void toggleSharedPasteboard(QObject *sender);
    Q_INVOKABLE void stopVirtualMachine(QObject *sender);
    Q_INVOKABLE void forceStopVirtualMachine(QObject *sender);
    Q_INVOKABLE void suspendVirtualMachine(QObject *sender);
    Q_INVOKABLE void rebootVirtualMachine(QObject *sender);
    Q_INVOKABLE void delete_(QObject *sender);
    Q_INVOKABLE void takeScreenShot(QObject *sender);

    void displayNotification(TarvDisplay *display) override;
    void displayPixelsDidChange(TarvDisplay *display) override;
    void displayPasteboardDataDidChange(TarvDisplay *display, const QByteArray &archive) override;
    void displayDidClose(TarvDisplay *display) override;

protected:
    void windowWillClose() override;
    void windowDidBecomeKey() override;
    void windowDidResignKey() override;
    void windowDidResize() override;

private:
    void windowDidLoad();
    void fullScreenWillChange(bool enters);
    DisplayMenuState menuState() const;

    // Each room uses only those above it.
    OpenScreen m_screen;
    TarvWindow *m_window; // null once it has closed
    GuestResolution m_resolution;
    WindowFrame m_frame;
    PasteboardSharing m_pasteboard;
    MachineControl m_machine;
};
