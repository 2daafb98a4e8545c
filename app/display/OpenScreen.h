// The screen that a display window shows, while it is open.
#pragma once

#include "app/display/displaygeometry.h"
#include "app/kit/FrameClock.h"
#include "app/kit/WindowController.h"
#include "tarvhv/display/KeyboardGrab.h"
#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/TarvDisplayView.h"

#include <QPointer>
#include <QString>

#include <memory>

class TarvWindow;

// Owns the display, tells its view of new frames and paints at the rate of the window's screen.
// The other rooms of a display window ask it for the display each time, since the VM can end it
// between any two events: then there is none, and nothing is left to act on.
class OpenScreen : public QObject
{
    Q_OBJECT

public:
    // The delegate is told of frames, of the pasteboard and of the end until close().
    OpenScreen(std::unique_ptr<TarvDisplay> display, TarvDisplayDelegate *delegate);
    ~OpenScreen() override;

    // Null once it has been closed.
    TarvDisplay *display() const { return m_display.get(); }
    TarvDisplayView *view() const { return m_view; }
    bool hasPicture() const; // a display without one is never painted
    // Of an open screen.
    GuestScreen guest() const;
    bool allowsLiveResize() const { return m_display && m_display->allowsLiveResize(); }
    // The window's title: the VM's name, and which of several screens it is.
    QString title() const;

    // Shows the picture in a window, whose title it keeps: it tells the way out while the guest has
    // the pointer or the keyboard.
    void showIn(TarvWindow *window);
    // The host's keyboard, for this screen. Of an open screen.
    KeyboardGrab &keyboard() { return *m_keyboard; }
    // The window is on the screen: frames are painted from the next turn of the loop on.
    void start(const TarvWindow *window);
    // The display has a new frame. False when it shows no pictures.
    bool takeFrame();
    // Lets go of display and view, which go on the next turn of the loop.
    void close();

private:
    QString windowTitle() const;

    std::unique_ptr<TarvDisplay, DeleteLater> m_display;
    QPointer<TarvDisplayView> m_view;
    std::unique_ptr<KeyboardGrab> m_keyboard;
    bool m_pointerGrabbed = false;
    std::unique_ptr<FrameClock> m_clock; // none for a display without a picture
};
