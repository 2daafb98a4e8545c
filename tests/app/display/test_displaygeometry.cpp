#include "app/display/displaygeometry.h"

#include <gtest/gtest.h>

namespace {

constexpr WindowSpace SPACE{{0, 25}, {1440, 875}};

TEST(DisplayGeometry, fitsTheFrameToTheGuestAndCutsWhatTheScreenCannotHold)
{
    EXPECT_EQ(fittedFrame({1920, 1080, true}, SPACE), QSizeF(960, 540 + 25));
    EXPECT_EQ(fittedFrame({2560, 1600, false}, SPACE), QSizeF(1440, 875 + 25));
    EXPECT_EQ(fittedFrame({1000, 870, false}, SPACE), QSizeF(1000, 875 + 25));
    EXPECT_EQ(fittedFrame({2000, 600, false}, SPACE), QSizeF(1440, 625));
}

TEST(DisplayGeometry, comparesTheGuestWithWholePixels)
{
    EXPECT_TRUE(guestFills({800, 600, false}, {800.9, 600.2}));
    EXPECT_FALSE(guestFills({800, 600, false}, {799.9, 600}));
    EXPECT_TRUE(guestFills({1601, 1200, true}, {800.9, 600.2}));
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
    EXPECT_EQ(zoomedOutContent({400, 300}), QSizeF(320, 240));
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

} // namespace
