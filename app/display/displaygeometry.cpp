#include "app/display/displaygeometry.h"

#include <cmath>
#include <cstdint>

namespace {

constexpr double ZOOM_IN = 1.2;
constexpr double ZOOM_OUT = 0.8;
// The largest number below a half: added to one that is just below a half, it does not reach 1.
constexpr double ROUNDING = 0.49999999999999994;
constexpr uint32_t SNAP_UP = 15;
constexpr uint32_t SNAP_MASK = 0xFFFFFFEA;

bool exceeds_guest(QSizeF content, const GuestScreen &guest)
{
    const double scale = guest_scale(guest);
    return content.width() * scale > guest.width || content.height() * scale > guest.height;
}

// The aspect ratio is that of the guest; the side that the user did not drag follows.
QSizeF scaled_content(const GuestScreen &guest, QSizeF content, bool width_dragged,
                      const WindowSpace &space)
{
    const double aspect = double(guest.width) / double(guest.height);
    if (width_dragged)
        content.setHeight(content.width() / aspect);
    else
        content.setWidth(content.height() * aspect);
    if (exceeds_guest(content, guest))
        content = guest_content(guest, guest_scale(guest));
    const QSizeF visible = space.visible - space.extra;
    double width = content.width();
    double height = content.height();
    if (width > visible.width()) {
        width = visible.width();
        height = width / aspect;
    }
    if (visible.height() < height) {
        height = visible.height();
        width = height * aspect;
    }
    return {width, height};
}

} // namespace

double guest_scale(const GuestScreen &guest)
{
    return guest.hdpi ? 2.0 : 1.0;
}

double guest_half_scale(const GuestScreen &guest)
{
    return guest.hdpi ? 4.0 : 2.0;
}

QSizeF guest_content(const GuestScreen &guest, double scale)
{
    return {guest.width / scale, guest.height / scale};
}

bool guest_fills(const GuestScreen &guest, QSizeF bounds)
{
    const double scale = guest_scale(guest);
    return guest.width == int(bounds.width() * scale) &&
           guest.height == int(bounds.height() * scale);
}

int round_length(double length)
{
    return int(length + std::copysign(ROUNDING, length));
}

int snap_length(double length)
{
    return int((uint32_t(round_length(length)) + SNAP_UP) & SNAP_MASK);
}

QSizeF clip_frame(QSizeF frame, const WindowSpace &space)
{
    if (frame.height() > space.visible.height())
        frame.setHeight(space.visible.height() + space.extra.height());
    if (frame.width() > space.visible.width())
        frame.setWidth(space.visible.width() + space.extra.width());
    return frame;
}

QSizeF fitted_frame(const GuestScreen &guest, const WindowSpace &space)
{
    return clip_frame(guest_content(guest, guest_scale(guest)) + space.extra, space);
}

QSizeF zoomed_in_frame(const GuestScreen &guest, QSizeF content, const WindowSpace &space)
{
    content *= ZOOM_IN;
    if (exceeds_guest(content, guest))
        content = guest_content(guest, guest_scale(guest));
    return clip_frame(content + space.extra, space);
}

QSizeF zoomed_out_content(QSizeF content)
{
    content *= ZOOM_OUT;
    const double aspect = content.width() / content.height();
    if (content.height() < CONTENT_MINIMUM.height())
        content = {CONTENT_MINIMUM.height() * aspect, CONTENT_MINIMUM.height()};
    if (content.width() < CONTENT_MINIMUM.width())
        content = {CONTENT_MINIMUM.width(), CONTENT_MINIMUM.width() / aspect};
    return content;
}

bool fits_visible(QSizeF frame, const WindowSpace &space)
{
    return frame.width() <= space.visible.width() && frame.height() <= space.visible.height();
}

QSizeF constrained_frame(const GuestScreen &guest, ResizeMode mode, QSizeF current_frame,
                         QSizeF proposed_frame, const WindowSpace &space)
{
    if (mode == ResizeMode::fixed)
        return proposed_frame;
    QSizeF content = (proposed_frame - space.extra).expandedTo(CONTENT_MINIMUM);
    if (mode == ResizeMode::scaled)
        content =
            scaled_content(guest, content, current_frame.width() != proposed_frame.width(), space);
    return QSizeF(round_length(content.width()), round_length(content.height())) + space.extra;
}
