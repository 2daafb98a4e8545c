#include "tarvhv/display/keymap.h"

#include <Qt>

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(Keymap, numbersEveryKeyOfAFullKeyboardOnce)
{
    struct Case
    {
        uint32_t evdev;
        uint32_t number;
    };
    constexpr Case CASES[] = {{1, 0x01},   {30, 0x1e},  {42, 0x2a},  {54, 0x36},  {69, 0x45},
                              {83, 0x53},  {86, 0x56},  {88, 0x58},  {96, 0x9c},  {97, 0x9d},
                              {99, 0xb7},  {100, 0xb8}, {103, 0xc8}, {111, 0xd3}, {119, 0xc6},
                              {125, 0xdb}, {126, 0xdc}, {127, 0xdd}};
    for (const Case &each : CASES)
        EXPECT_EQ(keymap_from_evdev(each.evdev), each.number) << each.evdev;
    std::set<uint32_t> numbers;
    for (uint32_t code = 1; code <= 127; code++) {
        const uint32_t number = keymap_from_evdev(code);
        EXPECT_LT(number, 0x100u);
        EXPECT_TRUE(number == 0 || numbers.insert(number).second) << code;
    }
    EXPECT_GE(numbers.size(), 104u);
    EXPECT_EQ(keymap_from_evdev(0xffffffff), 0u);
}

TEST(Keymap, tellsTheKeypadFromTheMainBlock)
{
    EXPECT_EQ(keymap_from_qt(Qt::Key_Up, false), 0xc8u);
    EXPECT_EQ(keymap_from_qt(Qt::Key_Up, true), 0x48u);
    EXPECT_EQ(keymap_from_qt(Qt::Key_7, false), 0x08u);
    EXPECT_EQ(keymap_from_qt(Qt::Key_7, true), 0x47u);
    EXPECT_EQ(keymap_from_qt(Qt::Key_Backtab, false), 0x0fu);
    EXPECT_EQ(keymap_from_qt(Qt::Key_unknown, false), 0u);
}

} // namespace
