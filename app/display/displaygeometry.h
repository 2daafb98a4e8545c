// The sizes of a display window: how a frame, its content and a guest's screen determine each
// other. Pure functions; lengths are in points unless said to be pixels.
#pragma once

#include <QSize>
#include <QSizeF>

// What a window needs to know of its guest.
struct GuestScreen
{
    int width = 0;  // pixels
    int height = 0; // pixels
    bool hdpi = false;
};

// What surrounds the content of a window, and where the window may lie.
struct WindowSpace
{
    QSizeF extra;   // frame size minus content size
    QSizeF visible; // the part of the screen that windows may cover
};

// Guest pixels in a point of a window that shows every pixel, and of one at half that size.
double guestScale(const GuestScreen &guest);
double guestHalfScale(const GuestScreen &guest);
QSizeF guestContent(const GuestScreen &guest, double scale);
// Whether a view of this size shows the guest pixel for point.
bool guestFills(const GuestScreen &guest, QSizeF bounds);

// To the nearest integer, halves away from zero.
int roundLength(double length);
// The granularity of sizes that the guest is asked for: bits 0, 2 and 4 are always clear.
int snapLength(double length);

// A frame too large for the screen: the height, then the width is cut to the visible one, each plus
// what surrounds a content. The other length stays: the aspect ratio is not kept.
QSizeF clipFrame(QSizeF frame, const WindowSpace &space);
// The frame that shows the guest at its own size.
QSizeF fittedFrame(const GuestScreen &guest, const WindowSpace &space);
// The frame a step larger, and never larger than the guest.
QSizeF zoomedInFrame(const GuestScreen &guest, QSizeF content, const WindowSpace &space);
// The content a step smaller, and no smaller than the least size.
QSizeF zoomedOutContent(QSizeF content);
bool fitsVisible(QSizeF frame, const WindowSpace &space);

enum class ResizeMode
{
    fixed,  // the guest's size can't change: the window is free
    scaled, // the window keeps the guest's aspect ratio
    live    // the guest follows the window
};

// The frame that a user's resizing comes to.
QSizeF constrainedFrame(const GuestScreen &guest, ResizeMode mode, QSizeF currentFrame,
                        QSizeF proposedFrame, const WindowSpace &space);

inline constexpr QSizeF CONTENT_MINIMUM(320, 240);
