#include "tarvhv/cli2/damage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(Damage, cutsOffJoinsWhatFitsAndBoxesTheRest)
{
    Damage damage(405, 800);
    damage.add({0, 0, 100, 10});
    damage.add({0, 10, 100, 10}); // below: one rectangle
    damage.add({20, 5, 10, 10});  // within
    damage.add({0, 0, 0, 10});    // nothing
    damage.add({INT32_MIN, 20, INT32_MAX, 1});
    EXPECT_THAT(damage.rects(), ElementsAre(ScreenRect{0, 0, 100, 20}));
    damage.add({200, 0, 10, 10}); // apart
    EXPECT_EQ(damage.rects().size(), 2u);
    for (int i = 0; i < 6; i++)
        damage.add({300 + 20 * i, 100 * i, 10, 10});
    EXPECT_EQ(damage.rects().size(), Damage::MAX);
    EXPECT_EQ(damage.rects().back(), (ScreenRect{400, 500, 5, 10}));
    damage.add({0, 700, 1, INT32_MAX});
    EXPECT_THAT(damage.take().rects(), ElementsAre(ScreenRect{0, 0, 405, 800}));
    EXPECT_TRUE(damage.empty());
}

TEST(Damage, belongsToOnePicture)
{
    Damage damage(100, 100), larger(200, 200);
    larger.addAll();
    EXPECT_TRUE(larger.all());
    damage.add(larger);
    EXPECT_TRUE(damage.all());
    damage.reset(50, 40);
    EXPECT_TRUE(damage.empty());
    damage.add({49, 39, 10, 10});
    EXPECT_FALSE(damage.all());
    EXPECT_THAT(damage.rects(), ElementsAre(ScreenRect{49, 39, 1, 1}));
    damage.dropFirst();
    EXPECT_THAT(damage.rects(), IsEmpty());
    Damage none;
    none.add({0, 0, 10, 10});
    EXPECT_TRUE(none.empty());
}

// Each pixel that was added is in it; and as long as it holds few rectangles, no other is.
TEST(Damage, losesNoPixel)
{
    constexpr int SIDE = 40;
    std::mt19937 random(7);
    for (int round = 0; round < 300; round++) {
        Damage damage(SIDE, SIDE);
        bool added[SIDE][SIDE] = {};
        bool exact = true;
        for (int i = 0; i < 12; i++) {
            const auto number = [&] { return int32_t(random() % 20); };
            const ScreenRect rect{number() * 2 - 3, number() * 2 - 3, number() / 2, number() / 2};
            const bool full = damage.rects().size() == Damage::MAX;
            damage.add(rect);
            exact = exact && !(full && damage.rects().size() == 1);
            for (int y = std::max(rect.y, 0); y < std::min(rect.y + rect.height, SIDE); y++)
                for (int x = std::max(rect.x, 0); x < std::min(rect.x + rect.width, SIDE); x++)
                    added[y][x] = true;
        }
        EXPECT_LE(damage.rects().size(), Damage::MAX);
        bool covered[SIDE][SIDE] = {};
        for (const ScreenRect &rect : damage.rects())
            for (int y = rect.y; y < rect.y + rect.height; y++)
                for (int x = rect.x; x < rect.x + rect.width; x++)
                    covered[y][x] = true;
        for (int y = 0; y < SIDE; y++)
            for (int x = 0; x < SIDE; x++)
                ASSERT_TRUE(covered[y][x] == added[y][x] || (!exact && covered[y][x]))
                    << round << ": " << x << "," << y;
    }
}

} // namespace
