#include "services/tarvvm/screens/viewer_input.h"

#include "tarvhv/cli2/input_packets.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint32_t BUTTON_WHEEL_UP = 3;
constexpr uint32_t BUTTON_WHEEL_DOWN = 4;
constexpr uint32_t WHEEL_BUTTONS = 1u << BUTTON_WHEEL_UP | 1u << BUTTON_WHEEL_DOWN;

} // namespace

ViewerInput::ViewerInput(GuestInput &guest, InputGate &gate, std::function<void()> roomCame)
    : m_guest(guest), m_gate(gate), m_room_came(std::move(roomCame))
{
}

ViewerInput::~ViewerInput()
{
    releaseAll();
}

bool ViewerInput::takes(uint32_t packet_type)
{
    return packet_type == DISPLAY_KEY || packet_type == DISPLAY_POINTER_ABS ||
           packet_type == DISPLAY_POINTER_REL || packet_type == DISPLAY_WHEEL;
}

bool ViewerInput::handle(const display_packet &packet)
{
    if (packet.type == DISPLAY_KEY && (packet.arg[0] <= 0 || uint32_t(packet.arg[0]) > KEY_MAX))
        return false;
    if (m_waiting.empty() || !input_packet_join(&m_waiting.back(), packet))
        m_waiting.push_back(packet);
    display_packet &last = m_waiting.back();
    if (last.type == DISPLAY_WHEEL)
        last.arg[0] = std::clamp(last.arg[0], -WHEEL_STEPS_MAX, WHEEL_STEPS_MAX);
    m_gate.wait(this);
    return true;
}

bool ViewerInput::sendNext()
{
    const bool was_full = full();
    display_packet &next = m_waiting.front();
    bool done = true;
    switch (next.type) {
    case DISPLAY_KEY:
        sendKey(uint32_t(next.arg[0]), next.arg[1] != 0);
        break;
    case DISPLAY_POINTER_ABS:
        m_guest.moveTo(next.arg[0], next.arg[1]);
        setButtons(uint32_t(next.arg[2]));
        break;
    case DISPLAY_POINTER_REL:
        m_guest.moveBy(next.arg[0], next.arg[1]);
        setButtons(uint32_t(next.arg[2]));
        break;
    default:
        done = !turnWheel(&next.arg[0]);
        break;
    }
    if (done)
        m_waiting.pop_front();
    if (was_full && done)
        m_room_came();
    return !m_waiting.empty();
}

void ViewerInput::sendKey(uint32_t number, bool down)
{
    m_keys[number] = down;
    m_guest.key(number, down);
}

void ViewerInput::setButtons(uint32_t wanted)
{
    wanted &= ((1u << BUTTON_COUNT) - 1) & ~WHEEL_BUTTONS;
    const uint32_t changed = wanted ^ std::exchange(m_buttons, wanted);
    for (uint32_t button = 0; button < BUTTON_COUNT; button++)
        if (changed & 1u << button)
            m_guest.button(button, (wanted & 1u << button) != 0);
}

// One step, which is a click of a button of its own; horizontal steps have none. Whether there are
// more.
bool ViewerInput::turnWheel(int32_t *steps)
{
    if (*steps == 0)
        return false;
    const uint32_t button = *steps < 0 ? BUTTON_WHEEL_UP : BUTTON_WHEEL_DOWN;
    m_guest.button(button, true);
    m_guest.button(button, false);
    *steps += *steps < 0 ? 1 : -1;
    return *steps != 0;
}

void ViewerInput::releaseAll()
{
    m_gate.forget(this);
    m_waiting.clear();
    for (uint32_t key = 0; key <= KEY_MAX; key++)
        if (m_keys[key])
            sendKey(key, false);
    setButtons(0);
}
