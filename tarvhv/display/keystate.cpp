#include "tarvhv/display/keystate.h"

#include <utility>

void KeyState::press(uint32_t number, const Send &send)
{
    m_pressed.insert(number);
    send(number, true);
}

void KeyState::release(uint32_t number, const Send &send)
{
    if (m_pressed.erase(number) != 0)
        send(number, false);
}

void KeyState::releaseAll(const Send &send)
{
    for (const uint32_t number : std::exchange(m_pressed, {}))
        send(number, false);
}
