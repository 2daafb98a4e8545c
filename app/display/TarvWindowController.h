// The controller of a window that shows one screen of a running VM.
#pragma once

#include "app/display/displaygeometry.h"
#include "app/kit/FrameClock.h"
#include "app/kit/WindowController.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/TarvDisplayView.h"

#include <QTimer>

#include <memory>

class TarvWindow;

// Owns the display and tells its view of new frames; keeps the window's size in step with the
// guest's, or the guest's with the window's (live resolution). Closes its window when the VM stops.
class TarvWindowController : public WindowController, public TarvDisplayDelegate
{
    Q_OBJECT

public:
    explicit TarvWindowController(std::unique_ptr<TarvDisplay> display);
    ~TarvWindowController() override;

    // Null once the window has closed.
    TarvDisplay *display() const { return m_display.get(); }
    TarvDisplayView *view() const { return m_view; }

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
    void displayPasteboardDataDidChange(TarvDisplay *display, const QByteArray &archive) override;
    void displayDidClose(TarvDisplay *display) override;

protected:
    void windowWillClose() override;
    void windowDidBecomeKey() override;
    void windowDidResignKey() override;
    void windowDidResize() override;

private:
    void windowDidLoad();
    void connectScreen();
    QString title() const;
    GuestScreen guest() const;
    WindowSpace space() const;
    bool isShownFree() const;
    bool guestFollows() const;
    void setFrame(QSizeF frame);
    void resizingSettled();
    void controlVirtualMachineUsingCommand(const QString &command, const QString &description,
                                           const QStringList &options = {});
    void startPasteboardPolling();
    void stopPasteboardPolling();
    void capsChanged();

    std::unique_ptr<TarvDisplay, DeleteLater> m_display;
    TarvWindow *m_window;
    QPointer<TarvDisplayView> m_view;
    std::unique_ptr<FrameClock> m_clock; // none for a display without a picture
    bool m_zoomInProgress = false;       // the controller itself changes the frame
    QSize m_guestSize;                   // as of the last notification
    QSize m_askedSize;                   // pixels that the window's size asked the guest for
    QTimer m_resizing;                   // runs while the user resizes
    Qt::KeyboardModifiers m_modifiers;   // held while the user resized
    QSizeF m_settledFrame;               // the frame before the user's resizing
    QSizeF m_refusedFrame;               // the window system's answer to our last correction
    std::unique_ptr<QTimer> m_pollTimer;
    qint64 m_changeCount = 0;
};
