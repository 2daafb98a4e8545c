#include "tarvhv/display/keymap.h"

#include <Qt>

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(Keymap, numbersEveryKeyOfAFullKeyboardOnce)
{
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
