#include "tarvhv/display/ScreenInput.h"

#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/keymap.h"
#include "tarvhv/display/viewgeometry.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QWheelEvent>

#include <algorithm>

namespace {

constexpr uint32_t CONTROLS[] = {0x1d, 0x9d};
constexpr uint32_t ALTS[] = {0x38, 0xb8};

// How far a grabbed pointer may be from the centre, in logical pixels, before it is put back.
constexpr qreal FAR = 100;

} // namespace

void ScreenInput::setDisplay(TarvDisplay *display)
{
    releaseAll();
    m_display = display;
    m_pointer.reset();
}

void ScreenInput::send(uint32_t number, bool down)
{
    if (m_display)
        m_display->sendKey(number, down);
}

void ScreenInput::keyPressed(const QKeyEvent &event)
{
    const uint32_t number = keymap_number(event);
    if (number != 0)
        m_keys.press(number, [this](uint32_t each, bool down) { send(each, down); });
}

// Repeated presses stand alone in a guest: the release that Qt reports between them is none.
void ScreenInput::keyReleased(const QKeyEvent &event)
{
    if (!event.isAutoRepeat())
        m_keys.release(keymap_number(event),
                       [this](uint32_t each, bool down) { send(each, down); });
}

bool ScreenInput::holdsReleaseKeys() const
{
    const auto held = [this](uint32_t number) { return m_keys.holds(number); };
    return std::any_of(std::begin(CONTROLS), std::end(CONTROLS), held) &&
           std::any_of(std::begin(ALTS), std::end(ALTS), held);
}

void ScreenInput::pointTo(const QMouseEvent &event, const PicturePlacement &placement)
{
    m_place = placement.toGuest(event.position());
    m_buttons = pointer_buttons(event.buttons());
    if (m_display)
        m_display->sendPointerPosition(m_place.x(), m_place.y(), m_buttons);
}

void ScreenInput::beginMoving(QPointF position)
{
    m_last = position;
    m_put = false;
    m_pointer.reset();
}

bool ScreenInput::move(const QMouseEvent &event, qreal ratio, QPointF centre)
{
    const QPointF position = event.position();
    const QPointF from_centre = position - centre;
    // Events from before the pointer was put back may still come: the nearer start is the true one.
    if (m_put && from_centre.manhattanLength() < (position - m_last).manhattanLength()) {
        m_put = false;
        m_last = centre;
    }
    const QPoint motion = m_pointer.motion(position - m_last, ratio);
    const uint32_t buttons = pointer_buttons(event.buttons());
    m_last = position;
    if (m_display && (!motion.isNull() || buttons != m_buttons))
        m_display->sendPointerMotion(motion.x(), motion.y(), buttons);
    m_buttons = buttons;
    if (m_put || from_centre.manhattanLength() < FAR)
        return false;
    m_put = true;
    return true;
}

void ScreenInput::turnWheel(const QWheelEvent &event)
{
    const QPoint steps = m_pointer.wheel(event.angleDelta());
    if (m_display && !steps.isNull())
        m_display->sendWheel(steps.y(), steps.x());
}

void ScreenInput::releaseAll()
{
    m_keys.releaseAll([this](uint32_t each, bool down) { send(each, down); });
    if (m_buttons != 0 && m_display) {
        if (m_display->absolutePointer())
            m_display->sendPointerPosition(m_place.x(), m_place.y(), 0);
        else
            m_display->sendPointerMotion(0, 0, 0);
    }
    m_buttons = 0;
}
