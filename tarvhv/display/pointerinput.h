// Pointer events gathered into what a guest's mouse sends: buttons, motion, wheel steps.
#pragma once

#include <QPoint>
#include <QPointF>
#include <Qt>

#include <cstdint>

// The bits of a display packet: 0 left, 1 middle, 2 right, 5 back, 6 forward.
uint32_t pointer_buttons(Qt::MouseButtons buttons);

// Collects fractions until they make whole units, so that slow motion is not lost.
class PointerInput
{
public:
    static constexpr int WHEEL_STEP = 120; // angle delta of one notch

    // Whole device pixels of motion.
    QPoint motion(QPointF logical, qreal ratio);
    // Whole steps of the wheel: up and left are negative.
    QPoint wheel(QPoint angle_delta);
    void reset();

private:
    QPointF m_motion;
    QPoint m_angle;
};
