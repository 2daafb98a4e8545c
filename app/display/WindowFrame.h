// The frame of a display window: fitted to the guest, zoomed, resized by the user.
#pragma once

#include "app/display/displaygeometry.h"

#include <QObject>
#include <QSizeF>
#include <QTimer>
#include <QVariantAnimation>

class GuestResolution;
class OpenScreen;
class TarvWindow;

// Applies displaygeometry to one window. Window systems do not say when the user begins and ends
// to resize, so that both are made out of the sizes that come; sizes that were set here are told
// apart from the user's. Where the window system can, it keeps to the limits while an edge is
// dragged; what it gives is brought to what it may be once the user is done. Does nothing once the
// screen has been closed.
class WindowFrame : public QObject
{
    Q_OBJECT

public:
    enum class Motion
    {
        immediate,
        animated
    };

    WindowFrame(TarvWindow *window, OpenScreen &screen, GuestResolution &resolution);

    // Gives the window the guest's size; a window that the user resizes gets it afterwards.
    void fitToGuest(Motion motion);
    // The frame size that a user's resizing to `proposed` comes to.
    QSizeF constrained(QSizeF proposed) const;
    void zoomIn();
    void zoomOut();
    void zoomToActualSize();
    void zoomToHalfSize();

    // Whether the window's size is its own to choose: it is neither maximised nor full screen.
    bool isFree() const;
    // Of the frame that the window has, or is on its way to.
    QSizeF contentSize() const;
    WindowSpace space() const;

    // The window's size changed, whoever changed it.
    void windowDidResize();
    // The user is done resizing: a guest that follows is asked for the snapped size.
    void windowDidEndLiveResize();
    // Tells the window system how far the user may resize. Whether the guest follows, its size or
    // the window's may have changed.
    void updateLimits();
    // Sizes that come in between are not the user's.
    void beginFullScreenChange();
    void endFullScreenChange();
    bool changesFullScreen() const { return m_fullScreenChanges; }
    // The window closes.
    void stop();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setFrame(QSizeF frame, Motion motion);
    void resizeWindow(QSize size);
    void frameIsSet();
    bool zoomInProgress() const;
    QSize aimedSize() const;
    ResizeMode resizeMode(bool inverted) const;
    void resizingSettled();

    TarvWindow *m_window;
    OpenScreen &m_screen;
    GuestResolution &m_resolution;
    QVariantAnimation m_motion;        // of the window's size
    bool m_sizeIsOurs = false;         // the size is being changed from here
    bool m_fullScreenChanges = false;  // full screen is being entered or left
    bool m_fitDue = false;             // once the user is done, or full screen is left
    QTimer m_resizing;                 // runs while the user resizes
    Qt::KeyboardModifiers m_modifiers; // held while the user resized
    QSize m_settledSize;               // of the window, before the user's resizing
    QSize m_refusedSize;               // the window system's answer to our last correction
};
