#include "app/display/displaygeometry.h"
#include "tarvhv/display/viewgeometry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

namespace {

constexpr WindowSpace SPACE{{0, 25}, {1440, 875}};
constexpr WindowSpace BORDERED{{2, 47}, {1440, 875}}; // borders, title and menu bar
constexpr double RATIOS[] = {1, 1.25, 1.5, 1.75, 2};

// As a view aligns its bounds to the device's pixels.
QSizeF aligned(QSizeF bounds, double ratio)
{
    return QSizeF(device_rect(QRectF(QPointF(), bounds), ratio).size()) / ratio;
}

TEST(DisplayGeometry, fitsTheFrameToTheGuestAndCutsWhatTheScreenCannotHold)
{
    EXPECT_EQ(fittedFrame({1920, 1080, true}, SPACE), QSizeF(960, 540 + 25));
    EXPECT_EQ(fittedFrame({2560, 1600, false}, SPACE), QSizeF(1440, 875 + 25));
    EXPECT_EQ(fittedFrame({1000, 870, false}, SPACE), QSizeF(1000, 875 + 25));
    EXPECT_EQ(fittedFrame({2000, 600, false}, SPACE), QSizeF(1440, 625));
    EXPECT_EQ(fittedFrame({1921, 1081, true}, SPACE), QSizeF(960.5, 565.5)) << "not rounded";
    // What surrounds the content is added to the side that was cut and to no other.
    EXPECT_EQ(fittedFrame({1000, 870, false}, BORDERED), QSizeF(1002, 875 + 47));
    EXPECT_EQ(fittedFrame({2000, 600, false}, BORDERED), QSizeF(1442, 647));
}

TEST(DisplayGeometry, comparesTheGuestWithWholePixels)
{
    EXPECT_TRUE(guestFills({800, 600, false}, {800.9, 600.2}));
    EXPECT_FALSE(guestFills({800, 600, false}, {799.9, 600}));
    EXPECT_TRUE(guestFills({1601, 1200, true}, {800.9, 600.2}));
}

TEST(DisplayGeometry, asksForTheWholePixelsOfTheAlignedView)
{
    const struct
    {
        double ratio;
        QSizeF view;
        QSize plain; // guest pixels
        QSize dense;
    } cases[] = {
        {1, {1366, 768}, {1366, 768}, {2732, 1536}},
        {1.25, {810, 714}, {810, 714}, {1620, 1428}},
        {1.25, {1093, 614}, {1092, 614}, {2185, 1228}}, // 1366 device pixels
        {1.5, {911, 512}, {911, 512}, {1822, 1024}},
        {1.5, {333, 241}, {333, 241}, {666, 482}},
        {1.75, {781, 439}, {781, 438}, {1562, 877}},
        {2, {683, 384}, {683, 384}, {1366, 768}},
    };
    for (const auto &each : cases) {
        const QSizeF view = aligned(each.view, each.ratio);
        EXPECT_EQ(pixelsOf(view, {1, 1, false}), each.plain) << each.ratio << ' ' << view.width();
        EXPECT_EQ(pixelsOf(view, {1, 1, true}), each.dense) << each.ratio << ' ' << view.width();
    }
}

// A guest that takes the size it is asked for is never asked again nor fitted to.
TEST(DisplayGeometry, isDoneWithARandomDragOnceTheGuestHasAnswered)
{
    std::mt19937 random(20);
    std::uniform_int_distribution<int> width(320, 3000);
    std::uniform_int_distribution<int> height(240, 2000);
    for (int drag = 0; drag < 1000; drag++) {
        const double ratio = RATIOS[drag % std::size(RATIOS)];
        const bool dense = drag / std::size(RATIOS) % 2 == 1;
        const QSizeF frame(width(random) / ratio, height(random) / ratio);
        const QSizeF content = constrainedFrame({640, 480, dense}, ResizeMode::live, {}, frame, {});
        const QSize view(snapLength(content.width()), snapLength(content.height()));
        const QSize asked = pixelsOf(aligned(view, ratio), {1, 1, dense});
        const GuestScreen guest{asked.width(), asked.height(), dense};
        const QSizeF fitted = fittedFrame(guest, {{}, {9999, 9999}});
        EXPECT_LE(std::abs(fitted.width() - view.width()), 1) << ratio << ' ' << view.width();
        EXPECT_LE(std::abs(fitted.height() - view.height()), 1) << ratio << ' ' << view.height();
        EXPECT_TRUE(guestFills(guest, view) || guestFills(guest, aligned(view, ratio)));
    }
}

TEST(DisplayGeometry, keepsTheSizeInPointsWithTheOtherDensity)
{
    const std::pair<GuestScreen, QSize> cases[] = {
        {{1024, 768, false}, {2048, 1536}},
        {{2048, 1536, true}, {1024, 768}},
        {{1921, 1081, true}, {960, 540}},
    };
    for (const auto &[guest, size] : cases) {
        const GuestScreen other = otherDensity(guest);
        EXPECT_EQ(QSize(other.width, other.height), size);
        EXPECT_NE(other.hdpi, guest.hdpi);
    }
}

TEST(DisplayGeometry, snapsSizesAndRoundsHalvesAwayFromZero)
{
    EXPECT_EQ(snapLength(800), 810);
    EXPECT_EQ(snapLength(801), 800);
    EXPECT_EQ(snapLength(1024), 1034);
    EXPECT_EQ(snapLength(720), 714);
    EXPECT_EQ(roundLength(0.49999999999999994), 0);
    EXPECT_EQ(roundLength(2.5), 3);
    EXPECT_EQ(roundLength(-2.5), -3);
}

TEST(DisplayGeometry, zoomsByFixedSteps)
{
    const GuestScreen guest{1024, 768, false};
    EXPECT_EQ(zoomedInFrame(guest, {800, 600}, SPACE), QSizeF(960, 745));
    EXPECT_EQ(zoomedInFrame(guest, {900, 675}, SPACE), QSizeF(1024, 793));
    EXPECT_EQ(zoomedInFrame(guest, {333, 250}, SPACE), QSizeF(399.6, 325)) << "not rounded";
    EXPECT_EQ(zoomedInFrame({4000, 3000, false}, {1400, 400}, BORDERED), QSizeF(1442, 527));
    EXPECT_EQ(zoomedInFrame({2048, 1536, true}, {900, 675}, SPACE), QSizeF(1024, 793));
    EXPECT_EQ(zoomedOutContent({400, 300}), QSizeF(320, 240));
    EXPECT_EQ(zoomedOutContent({501, 333}), QSizeF(400.8, 266.4)) << "not rounded";
    EXPECT_EQ(zoomedOutContent({1000, 500}), QSizeF(800, 400));
    EXPECT_EQ(zoomedOutContent({1000, 250}), QSizeF(960, 240));
    EXPECT_EQ(zoomedOutContent({300, 600}), QSizeF(320, 640));
}

TEST(DisplayGeometry, constrainsTheUsersResizing)
{
    const GuestScreen guest{1024, 768, false};
    const QSizeF now(800, 625);
    const std::tuple<ResizeMode, QSizeF, QSizeF> cases[] = {
        {ResizeMode::fixed, {10, 10}, {10, 10}},
        {ResizeMode::live, {10, 10}, {320, 265}},
        {ResizeMode::live, {3000, 700.5}, {3000, 701}},
        {ResizeMode::scaled, {600, 625}, {600, 475}},   // the width was dragged
        {ResizeMode::scaled, {800, 325}, {400, 325}},   // the height was
        {ResizeMode::scaled, {10, 10}, {320, 265}},     // the least size
        {ResizeMode::scaled, {1200, 625}, {1024, 793}}, // no larger than the guest
    };
    for (const auto &[mode, proposed, allowed] : cases)
        EXPECT_EQ(constrainedFrame(guest, mode, now, proposed, SPACE), allowed)
            << proposed.width() << " x " << proposed.height();
    const GuestScreen large{4000, 2000, false};
    EXPECT_EQ(constrainedFrame(large, ResizeMode::scaled, now, {2000, 900}, SPACE),
              QSizeF(1440, 745));
    const GuestScreen tall{2000, 4000, false};
    EXPECT_EQ(constrainedFrame(tall, ResizeMode::scaled, now, {1000, 900}, SPACE),
              QSizeF(425, 875));
}

TEST(DisplayGeometry, tellsTheWindowSystemHowFarAResizingMayGo)
{
    const GuestScreen guest{1024, 768, false};
    EXPECT_EQ(resizeLimits(guest, ResizeMode::fixed, SPACE), ResizeLimits());
    EXPECT_EQ(resizeLimits(guest, ResizeMode::live, SPACE),
              (ResizeLimits{CONTENT_MINIMUM, {}, {}}));
    EXPECT_EQ(resizeLimits(guest, ResizeMode::scaled, SPACE),
              (ResizeLimits{CONTENT_MINIMUM, {1024, 768}, {1024, 768}}));
    EXPECT_EQ(resizeLimits({4000, 2000, true}, ResizeMode::scaled, SPACE),
              (ResizeLimits{{320, 160}, {1440, 720}, {4000, 2000}}));
    EXPECT_EQ(resizeLimits({80, 60, false}, ResizeMode::scaled, SPACE),
              (ResizeLimits{{80, 60}, {80, 60}, {80, 60}}));
}

TEST(DisplayGeometry, entersFullScreenOnlyToFillIt)
{
    using enum FullScreenStep;
    constexpr QSizeF SCREEN(1440, 900);
    constexpr GuestScreen OTHER{1024, 768, false};
    const struct
    {
        GuestScreen guest;
        bool full, prefers, allows;
        FullScreenStep step;
    } cases[] = {
        {OTHER, true, false, false, toggle},
        {OTHER, false, true, false, toggle},
        {OTHER, false, false, true, ask},
        {OTHER, false, false, false, refuse},
        {{1440, 900, false}, false, false, false, toggle},
        {{2880, 1800, true}, false, false, false, toggle},
        {{1440, 900, true}, false, false, false, refuse},
        {{1440, 899, false}, false, false, true, ask},
        {{1439, 900, false}, false, false, true, ask},
    };
    for (const auto &each : cases)
        EXPECT_EQ(fullScreenStep(each.guest, SCREEN, each.full, each.prefers, each.allows),
                  each.step)
            << each.guest.width << " x " << each.guest.height;
    // A screen of 1366 device pixels is no whole number of points wide.
    EXPECT_EQ(fullScreenStep({1093, 614, false}, {1092.8, 614}, false, false, true), ask);
}

TEST(DisplayGeometry, hidesTheBarsInFullScreenOnlyWhereThatIsPreferred)
{
    EXPECT_EQ(fullScreenOptions(1024 | 1 | 4, true), 1024u | 2 | 8);
    EXPECT_EQ(fullScreenOptions(1024 | 15 | 16, true), 1024u | 16 | 2 | 8);
    EXPECT_EQ(fullScreenOptions(1024 | 1 | 4, false), 1024u | 1 | 4);
    EXPECT_EQ(fullScreenOptions(1 | 4, true), 1u | 4) << "no full screen";
}

} // namespace
