#include "tarvhv/display/viewgeometry.h"

#include <algorithm>
#include <cmath>

namespace {

int nearest(qreal value)
{
    return int(std::lround(value));
}

} // namespace

QRect device_rect(const QRectF &logical, qreal ratio)
{
    const QPoint from(nearest(logical.left() * ratio), nearest(logical.top() * ratio));
    const QPoint to(nearest(logical.right() * ratio), nearest(logical.bottom() * ratio));
    return QRect(from, QSize(to.x() - from.x(), to.y() - from.y()));
}

PicturePlacement::PicturePlacement(QSize guest, QSizeF logical_view, qreal ratio)
    : m_guest(guest),
      m_device(device_rect(QRectF(QPointF(), logical_view), ratio).size()),
      m_ratio(ratio)
{
    if (guest.isEmpty() || m_device.isEmpty())
        return;
    const qreal factor = std::min(qreal(m_device.width()) / guest.width(),
                                  qreal(m_device.height()) / guest.height());
    const QSize size(std::clamp(nearest(guest.width() * factor), 1, m_device.width()),
                     std::clamp(nearest(guest.height() * factor), 1, m_device.height()));
    m_target = QRect(
        QPoint((m_device.width() - size.width()) / 2, (m_device.height() - size.height()) / 2),
        size);
}

bool PicturePlacement::isSmooth() const
{
    if (m_target.isEmpty())
        return false;
    return m_target.width() % m_guest.width() != 0 || m_target.height() % m_guest.height() != 0;
}

QRect PicturePlacement::toDevice(const QRect &guest) const
{
    if (m_target.isEmpty())
        return {};
    if (isExact())
        return guest.translated(m_target.topLeft()) & m_target;
    // Blending reaches one guest pixel further.
    const QRect reach = guest.adjusted(-1, -1, 1, 1);
    const qreal fx = qreal(m_target.width()) / m_guest.width();
    const qreal fy = qreal(m_target.height()) / m_guest.height();
    const QRectF scaled(reach.x() * fx, reach.y() * fy, reach.width() * fx, reach.height() * fy);
    return scaled.toAlignedRect().translated(m_target.topLeft()) & m_target;
}

QRect PicturePlacement::toLogical(const QRect &device) const
{
    return QRectF(device.x() / m_ratio, device.y() / m_ratio, device.width() / m_ratio,
                  device.height() / m_ratio)
        .toAlignedRect();
}

QPoint PicturePlacement::toGuest(QPointF logical) const
{
    if (m_target.isEmpty())
        return {};
    const auto place = [](qreal position, int start, int length, int guest) {
        const int pixel = int(std::floor((position - start) * guest / length));
        return std::clamp(pixel, 0, guest - 1);
    };
    return {place(logical.x() * m_ratio, m_target.x(), m_target.width(), m_guest.width()),
            place(logical.y() * m_ratio, m_target.y(), m_target.height(), m_guest.height())};
}
