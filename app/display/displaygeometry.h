// The sizes of a display window: how a frame, its content and a guest's screen determine each
// other. Pure functions; lengths are in points unless said to be pixels.
#pragma once

#include <QSize>
#include <QSizeF>

#include <cstdint>

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
// The guest pixels that a view of this size asks for, cut to whole ones.
QSize pixelsOf(QSizeF bounds, const GuestScreen &guest);
// Whether a view of this size shows the guest pixel for point.
bool guestFills(const GuestScreen &guest, QSizeF bounds);
// The guest's screen with the other pixel density and the same size in points.
GuestScreen otherDensity(const GuestScreen &guest);

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

// What a user's resizing may come to, for window systems that keep to it while an edge is dragged.
struct ResizeLimits
{
    QSizeF least;   // content; empty: none
    QSizeF largest; // content; empty: none
    QSize aspect;   // width to height of the content; empty: any

    bool operator==(const ResizeLimits &) const = default;
};
ResizeLimits resizeLimits(const GuestScreen &guest, ResizeMode mode, const WindowSpace &space);

// The frame that a user's resizing comes to.
QSizeF constrainedFrame(const GuestScreen &guest, ResizeMode mode, QSizeF currentFrame,
                        QSizeF proposedFrame, const WindowSpace &space);

inline constexpr QSizeF CONTENT_MINIMUM(320, 240);

// What becomes of the user's wish to enter or leave full screen.
enum class FullScreenStep
{
    toggle, // it is done
    refuse, // nothing happens
    ask     // the guest would have to follow the window: the user is asked first
};

// Full screen has to be filled: by a guest of the screen's very size or by one that follows. It is
// the stored preference that counts, whatever is held down, and leaving is never blocked.
FullScreenStep fullScreenStep(const GuestScreen &guest, QSizeF screenFrame, bool isFullScreen,
                              bool prefersLiveResize, bool allowsLiveResize);

// What full screen leaves of the desktop, as bits.
using PresentationOptions = uint32_t;
inline constexpr PresentationOptions PRESENT_AUTO_HIDE_DOCK = 1 << 0;
inline constexpr PresentationOptions PRESENT_HIDE_DOCK = 1 << 1;
inline constexpr PresentationOptions PRESENT_AUTO_HIDE_MENU_BAR = 1 << 2;
inline constexpr PresentationOptions PRESENT_HIDE_MENU_BAR = 1 << 3;
inline constexpr PresentationOptions PRESENT_FULL_SCREEN = 1 << 10;

// The options that full screen is entered with, of those proposed.
PresentationOptions fullScreenOptions(PresentationOptions proposed, bool hidesMenuBar);
