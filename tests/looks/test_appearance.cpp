// Light and dark, by setting and by the desktop's wish.
#include "app/kit/Appearance.h"

#include <QApplication>
#include <QPalette>

#include <gtest/gtest.h>

#include <cmath>

namespace {

double luminance(QColor colour)
{
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

// The contrast of two colours as accessibility guidelines measure it, from 1 to 21.
double contrast(QPalette::ColorRole text, QPalette::ColorRole ground)
{
    const QPalette palette = QApplication::palette();
    const double one = luminance(palette.color(text));
    const double other = luminance(palette.color(ground));
    return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

bool isDark()
{
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

} // namespace

TEST(Appearance, isReadableInDarkAndLight)
{
    for (const auto scheme : {Appearance::Scheme::dark, Appearance::Scheme::light}) {
        const Appearance appearance(scheme);
        EXPECT_EQ(isDark(), scheme == Appearance::Scheme::dark);
        const std::pair<QPalette::ColorRole, QPalette::ColorRole> pairs[] = {
            {QPalette::WindowText, QPalette::Window},
            {QPalette::Text, QPalette::Base},
            {QPalette::ButtonText, QPalette::Button},
            {QPalette::ToolTipText, QPalette::ToolTipBase},
            {QPalette::HighlightedText, QPalette::Highlight}};
        for (const auto &[text, ground] : pairs)
            EXPECT_GT(contrast(text, ground), 4.5) << text << " on " << ground;
    }
}

TEST(Appearance, followsADesktopThatTurnsDarkAndBack)
{
    Appearance appearance(Appearance::Scheme::automatic);
    ASSERT_FALSE(isDark());
    appearance.desktopPrefers(1);
    EXPECT_TRUE(isDark());
    appearance.desktopPrefers(0);
    EXPECT_FALSE(isDark());
}
