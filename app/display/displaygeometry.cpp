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

bool exceedsGuest(QSizeF content, const GuestScreen &guest)
{
    const double scale = guestScale(guest);
    return content.width() * scale > guest.width || content.height() * scale > guest.height;
}

// The aspect ratio is that of the guest; the side that the user did not drag follows.
QSizeF scaledContent(const GuestScreen &guest, QSizeF content, bool widthDragged,
                     const WindowSpace &space)
{
    const double aspect = double(guest.width) / double(guest.height);
    if (widthDragged)
        content.setHeight(content.width() / aspect);
    else
        content.setWidth(content.height() * aspect);
    if (exceedsGuest(content, guest))
        content = guestContent(guest, guestScale(guest));
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

double guestScale(const GuestScreen &guest)
{
    return guest.hdpi ? 2.0 : 1.0;
}

double guestHalfScale(const GuestScreen &guest)
{
    return guest.hdpi ? 4.0 : 2.0;
}

QSizeF guestContent(const GuestScreen &guest, double scale)
{
    return {guest.width / scale, guest.height / scale};
}

QSize pixelsOf(QSizeF bounds, const GuestScreen &guest)
{
    const double scale = guestScale(guest);
    return {int(bounds.width() * scale), int(bounds.height() * scale)};
}

bool guestFills(const GuestScreen &guest, QSizeF bounds)
{
    return pixelsOf(bounds, guest) == QSize(guest.width, guest.height);
}

GuestScreen otherDensity(const GuestScreen &guest)
{
    if (guest.hdpi)
        return {guest.width / 2, guest.height / 2, false};
    return {int(uint32_t(guest.width) * 2), int(uint32_t(guest.height) * 2), true};
}

int roundLength(double length)
{
    return int(length + std::copysign(ROUNDING, length));
}

int snapLength(double length)
{
    return int((uint32_t(roundLength(length)) + SNAP_UP) & SNAP_MASK);
}

QSizeF clipFrame(QSizeF frame, const WindowSpace &space)
{
    if (frame.height() > space.visible.height())
        frame.setHeight(space.visible.height() + space.extra.height());
    if (frame.width() > space.visible.width())
        frame.setWidth(space.visible.width() + space.extra.width());
    return frame;
}

QSizeF fittedFrame(const GuestScreen &guest, const WindowSpace &space)
{
    return clipFrame(guestContent(guest, guestScale(guest)) + space.extra, space);
}

QSizeF zoomedInFrame(const GuestScreen &guest, QSizeF content, const WindowSpace &space)
{
    content *= ZOOM_IN;
    if (exceedsGuest(content, guest))
        content = guestContent(guest, guestScale(guest));
    return clipFrame(content + space.extra, space);
}

QSizeF zoomedOutContent(QSizeF content)
{
    content *= ZOOM_OUT;
    const double aspect = content.width() / content.height();
    if (content.height() < CONTENT_MINIMUM.height())
        content = {CONTENT_MINIMUM.height() * aspect, CONTENT_MINIMUM.height()};
    if (content.width() < CONTENT_MINIMUM.width())
        content = {CONTENT_MINIMUM.width(), CONTENT_MINIMUM.width() / aspect};
    return content;
}

bool fitsVisible(QSizeF frame, const WindowSpace &space)
{
    return frame.width() <= space.visible.width() && frame.height() <= space.visible.height();
}

QSizeF constrainedFrame(const GuestScreen &guest, ResizeMode mode, QSizeF currentFrame,
                        QSizeF proposedFrame, const WindowSpace &space)
{
    if (mode == ResizeMode::fixed)
        return proposedFrame;
    QSizeF content = (proposedFrame - space.extra).expandedTo(CONTENT_MINIMUM);
    if (mode == ResizeMode::scaled)
        content =
            scaledContent(guest, content, currentFrame.width() != proposedFrame.width(), space);
    return QSizeF(roundLength(content.width()), roundLength(content.height())) + space.extra;
}

ResizeLimits resizeLimits(const GuestScreen &guest, ResizeMode mode, const WindowSpace &space)
{
    switch (mode) {
    case ResizeMode::fixed:
        return {};
    case ResizeMode::live:
        return {CONTENT_MINIMUM, {}, {}};
    case ResizeMode::scaled:
        break;
    }
    // At most the guest's own size or what the screen holds. At least what dragging either side may
    // come to: the least size limits the dragged one, and the other follows it below.
    const QSizeF whole = guestContent(guest, guestScale(guest));
    const QSizeF largest = scaledContent(guest, whole, /*widthDragged=*/true, space);
    const QSizeF least = whole.scaled(CONTENT_MINIMUM, Qt::KeepAspectRatio);
    return {least.boundedTo(largest), largest, {guest.width, guest.height}};
}

FullScreenStep fullScreenStep(const GuestScreen &guest, QSizeF screenFrame, bool isFullScreen,
                              bool prefersLiveResize, bool allowsLiveResize)
{
    const double scale = guestScale(guest);
    const bool fits =
        screenFrame.width() * scale == guest.width && screenFrame.height() * scale == guest.height;
    if (isFullScreen || prefersLiveResize || fits)
        return FullScreenStep::toggle;
    return allowsLiveResize ? FullScreenStep::ask : FullScreenStep::refuse;
}

PresentationOptions fullScreenOptions(PresentationOptions proposed, bool hidesMenuBar)
{
    if ((proposed & PRESENT_FULL_SCREEN) == 0 || !hidesMenuBar)
        return proposed;
    constexpr PresentationOptions BARS = PRESENT_AUTO_HIDE_DOCK | PRESENT_HIDE_DOCK |
                                         PRESENT_AUTO_HIDE_MENU_BAR | PRESENT_HIDE_MENU_BAR;
    return (proposed & ~BARS) | PRESENT_HIDE_DOCK | PRESENT_HIDE_MENU_BAR;
}
