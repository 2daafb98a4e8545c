#include "services/tarvvm/screens/engine_input.h"

#include <algorithm>

namespace {

constexpr int32_t MOTION_MAX = 4096; // pixels of one motion, more than any hand makes

} // namespace

DisplayBus::Done EngineInput::counted()
{
    m_gate.sent();
    return [gate = &m_gate](const ServiceFailure &) { gate->answered(); };
}

void EngineInput::key(uint32_t number, bool down)
{
    m_bus.key(m_console.index, number, down, counted());
}

void EngineInput::button(uint32_t number, bool down)
{
    if (m_desktop)
        m_desktop->button(number, down);
    else
        m_bus.button(m_console.index, number, down, counted());
}

void EngineInput::moveTo(int32_t x, int32_t y)
{
    if (!m_console.absolute || m_console.width == 0 || m_console.height == 0)
        return;
    x = std::clamp(x, 0, int32_t(m_console.width) - 1);
    y = std::clamp(y, 0, int32_t(m_console.height) - 1);
    if (m_desktop)
        m_desktop->moveTo(m_console.index, x, y);
    else
        m_bus.moveTo(m_console.index, uint32_t(x), uint32_t(y), counted());
}

void EngineInput::moveBy(int32_t dx, int32_t dy)
{
    if (!m_console.absolute)
        m_bus.moveBy(m_console.index, std::clamp(dx, -MOTION_MAX, MOTION_MAX),
                     std::clamp(dy, -MOTION_MAX, MOTION_MAX), counted());
}
