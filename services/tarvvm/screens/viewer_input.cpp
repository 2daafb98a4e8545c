#include "services/tarvvm/screens/viewer_input.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

constexpr uint32_t BUTTON_WHEEL_UP = 3;
constexpr uint32_t BUTTON_WHEEL_DOWN = 4;
constexpr uint32_t WHEEL_BUTTONS = 1u << BUTTON_WHEEL_UP | 1u << BUTTON_WHEEL_DOWN;
constexpr int32_t WHEEL_STEPS_MAX = 32;

} // namespace

bool ViewerInput::takes(uint32_t packet_type)
{
    return packet_type == DISPLAY_KEY || packet_type == DISPLAY_POINTER_ABS ||
           packet_type == DISPLAY_POINTER_REL || packet_type == DISPLAY_WHEEL;
}

bool ViewerInput::handle(const display_packet &packet)
{
    const int32_t *arg = packet.arg;
    switch (packet.type) {
    case DISPLAY_KEY:
        return handleKey(arg[0], arg[1] != 0);
    case DISPLAY_POINTER_ABS:
        m_guest.moveTo(arg[0], arg[1]);
        setButtons(uint32_t(arg[2]));
        return true;
    case DISPLAY_POINTER_REL:
        m_guest.moveBy(arg[0], arg[1]);
        setButtons(uint32_t(arg[2]));
        return true;
    case DISPLAY_WHEEL:
        turnWheel(arg[0]);
        return true;
    default:
        return false;
    }
}

bool ViewerInput::handleKey(int32_t number, bool down)
{
    if (number <= 0 || uint32_t(number) > KEY_MAX)
        return false;
    m_keys[size_t(number)] = down;
    m_guest.key(uint32_t(number), down);
    return true;
}

void ViewerInput::setButtons(uint32_t wanted)
{
    wanted &= ((1u << BUTTON_COUNT) - 1) & ~WHEEL_BUTTONS;
    const uint32_t changed = wanted ^ std::exchange(m_buttons, wanted);
    for (uint32_t button = 0; button < BUTTON_COUNT; button++)
        if (changed & 1u << button)
            m_guest.button(button, (wanted & 1u << button) != 0);
}

// A step is a click of a button of its own; horizontal steps have none.
void ViewerInput::turnWheel(int32_t vertical)
{
    const uint32_t button = vertical < 0 ? BUTTON_WHEEL_UP : BUTTON_WHEEL_DOWN;
    const int32_t steps = std::clamp(vertical, -WHEEL_STEPS_MAX, WHEEL_STEPS_MAX);
    for (int32_t i = 0; i < std::abs(steps); i++) {
        m_guest.button(button, true);
        m_guest.button(button, false);
    }
}

void ViewerInput::releaseAll()
{
    for (uint32_t key = 0; key <= KEY_MAX; key++)
        if (m_keys[key])
            m_guest.key(key, false);
    m_keys.reset();
    setButtons(0);
}
