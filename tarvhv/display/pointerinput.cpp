#include "tarvhv/display/pointerinput.h"

#include <cmath>
#include <utility>

uint32_t pointer_buttons(Qt::MouseButtons buttons)
{
    // Bits 3 and 4 are the wheel's in the engine and stay clear.
    constexpr std::pair<Qt::MouseButton, uint32_t> BITS[] = {{Qt::LeftButton, 1u << 0},
                                                             {Qt::MiddleButton, 1u << 1},
                                                             {Qt::RightButton, 1u << 2},
                                                             {Qt::BackButton, 1u << 5},
                                                             {Qt::ForwardButton, 1u << 6}};
    uint32_t bits = 0;
    for (const auto &[button, bit] : BITS)
        bits |= buttons.testFlag(button) ? bit : 0;
    return bits;
}

QPoint PointerInput::motion(QPointF logical, qreal ratio)
{
    m_motion += logical * ratio;
    const QPoint whole(int(std::trunc(m_motion.x())), int(std::trunc(m_motion.y())));
    m_motion -= whole;
    return whole;
}

QPoint PointerInput::wheel(QPoint angle_delta)
{
    m_angle += angle_delta;
    const QPoint steps(m_angle.x() / WHEEL_STEP, m_angle.y() / WHEEL_STEP);
    m_angle -= steps * WHEEL_STEP;
    return -steps;
}

void PointerInput::reset()
{
    m_motion = {};
    m_angle = {};
}
