// The frame of a display window: fitted to the guest, zoomed, resized by the user.
#pragma once

#include "app/display/displaygeometry.h"

#include <QObject>
#include <QSizeF>
#include <QTimer>

class GuestResolution;
class OpenScreen;
class TarvWindow;

// Applies displaygeometry to one window. Window systems do not say when the user begins and ends
// to resize, so that both are made out of the sizes that come; sizes that were set here are told
// apart from the user's. Does nothing once the screen has been closed.
class WindowFrame : public QObject
{
    Q_OBJECT

public:
    WindowFrame(TarvWindow *window, OpenScreen &screen, GuestResolution &resolution);

    // Gives the window the guest's size.
    void fitToGuest();
    // The frame size that a user's resizing to `proposed` comes to.
    QSizeF constrained(QSizeF proposed) const;
    void zoomIn();
    void zoomOut();
    void zoomToActualSize();
    void zoomToHalfSize();

    // Whether the window's size is its own to choose: it is neither maximised nor full screen.
    bool isFree() const;
    QSizeF contentSize() const;
    WindowSpace space() const;

    // The window's size changed, whoever changed it.
    void windowDidResize();
    // The user is done resizing: a guest that follows is asked for the snapped size.
    void windowDidEndLiveResize();
    // Sizes that come in between are not the user's.
    void beginFullScreenChange();
    void endFullScreenChange();
    // The window closes.
    void stop();

private:
    void setFrame(QSizeF frame);
    bool guestFollows() const;
    void resizingSettled();

    TarvWindow *m_window;
    OpenScreen &m_screen;
    GuestResolution &m_resolution;
    bool m_zoomInProgress = false;     // the frame is being changed from here
    bool m_fullScreenChanges = false;  // full screen is being entered or left
    QTimer m_resizing;                 // runs while the user resizes
    Qt::KeyboardModifiers m_modifiers; // held while the user resized
    QSizeF m_settledFrame;             // the frame before the user's resizing
    QSizeF m_refusedFrame;             // the window system's answer to our last correction
};
