// What a view's keys and pointer mean to the guest.
#pragma once

#include "tarvhv/display/keystate.h"
#include "tarvhv/display/pointerinput.h"

#include <QPoint>
#include <QPointF>
#include <QPointer>

class QKeyEvent;
class QMouseEvent;
class QWheelEvent;
class PicturePlacement;
class TarvDisplay;

// Keeps what the guest holds pressed. In relative mode it follows a pointer that the view keeps
// away from its edges.
class ScreenInput
{
public:
    void setDisplay(TarvDisplay *display);

    void keyPressed(const QKeyEvent &event);
    void keyReleased(const QKeyEvent &event);
    // Control and Alt are down: the way out of a grab.
    bool holdsReleaseKeys() const;
    void pointTo(const QMouseEvent &event, const PicturePlacement &placement);
    // Motion of a grabbed pointer. Where the pointer is to be put back to (in the view), if the
    // event took it far from `centre`.
    bool move(const QMouseEvent &event, qreal ratio, QPointF centre);
    void beginMoving(QPointF position);
    void turnWheel(const QWheelEvent &event);
    // Releases every key and button.
    void releaseAll();

private:
    void send(uint32_t number, bool down);

    QPointer<TarvDisplay> m_display;
    KeyState m_keys;
    PointerInput m_pointer;
    uint32_t m_buttons = 0;
    QPoint m_place;     // last absolute position
    QPointF m_last;     // last position of a grabbed pointer
    bool m_put = false; // it was asked to be put back, and has not been seen there
};
