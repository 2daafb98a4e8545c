// Where a guest's picture lies in its view, in device pixels. Pure functions.
#pragma once

#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QSize>

// The one rule from logical lengths to device pixels: edges to the nearest pixel, halves away from
// zero. `ratio` is the device pixel ratio.
QRect device_rect(const QRectF &logical, qreal ratio);

// A picture fitted into a view: centred, the aspect ratio kept, never one pixel off when it can be
// shown as it is.
class PicturePlacement
{
public:
    PicturePlacement() = default;
    PicturePlacement(QSize guest, QSizeF logical_view, qreal ratio);

    QSize device() const { return m_device; } // the view
    QRect target() const { return m_target; } // the picture in it
    bool isExact() const { return m_target.size() == m_guest; }
    // Whether scaling blends pixels: all but whole multiples.
    bool isSmooth() const;

    // Device pixels that show a rectangle of the guest, and those that scaling spreads it to.
    QRect toDevice(const QRect &guest) const;
    // Logical pixels that cover device pixels, for QWidget::update.
    QRect toLogical(const QRect &device) const;
    // The guest pixel at a logical position; positions outside give the nearest.
    QPoint toGuest(QPointF logical) const;

private:
    QSize m_guest;
    QSize m_device;
    QRect m_target;
    qreal m_ratio = 1;
};
