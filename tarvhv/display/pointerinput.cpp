#include "tarvhv/display/pointerinput.h"

#include <cmath>
#include <iterator>

uint32_t pointer_buttons(Qt::MouseButtons buttons)
{
    constexpr Qt::MouseButton BITS[] = {Qt::LeftButton, Qt::MiddleButton, Qt::RightButton,
                                        Qt::BackButton, Qt::ForwardButton};
    uint32_t bits = 0;
    for (size_t i = 0; i < std::size(BITS); i++)
        bits |= buttons.testFlag(BITS[i]) ? 1u << i : 0;
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
