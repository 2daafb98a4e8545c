#include "app/display/DisplayMenu.h"
#include "tarvhv/cli2/display_protocol.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// One letter for each item that is enabled; one that is checked is followed by "+".
std::string offered(const DisplayMenuState &state)
{
    const struct
    {
        char letter;
        const char *action;
        const char *identifier = "";
    } items[] = {
        {'d', "useHiDPI:", "USEHIDPI"},
        {'p', "paste:"},
        {'c', "copy:"},
        {'r', "setResolution:"},
        {'i', "zoomIn:"},
        {'o', "zoomOut:"},
        {'a', "zoomImageToActualSize:"},
        {'h', "zoomImageToHalfSize:"},
        {'k', "lockKeyboard:"},
        {'l', "toggleLiveResize:"},
    };
    std::string text;
    for (const auto &item : items) {
        const MenuItemState found =
            displayMenuItemState(QLatin1String(item.action), QLatin1String(item.identifier), state);
        if (found.enabled)
            text += item.letter;
        if (found.checked.value_or(false))
            text += '+';
    }
    return text;
}

} // namespace

TEST(DisplayMenu, offersWhatTheGuestAndTheSizesAllow)
{
    const GuestScreen guest{800, 600, false};
    const GuestScreen dense{800, 600, true};
    const QSizeF screen(1440, 875);
    const struct
    {
        DisplayMenuState state;
        const char *offered;
    } cases[] = {
        {{guest, false, 0, {800, 600}, screen, false}, "ohkl"},
        {{guest, true, DISPLAY_CAP_COPY, {640, 480}, screen, true}, "dcrioahk+l"},
        {{dense, true, DISPLAY_CAP_PASTE, {200, 150}, screen, false}, "d+priakl"},
        {{dense, false, 0, {400, 300}, screen, false}, "ohkl"},
        {{guest, false, 0, {400, 300}, screen, false}, "ioakl"},
        {{guest, false, 0, {400, 240}, screen, false}, "iahkl"},
        {{guest, false, 0, {800, 500}, screen, false}, "oahkl"},
        {{guest, false, 0, {1441, 876}, screen, false}, "ohkl"},
        {{guest, false, 0, {1441, 875}, screen, false}, "oahkl"},
    };
    for (const auto &each : cases)
        EXPECT_EQ(offered(each.state), each.offered)
            << each.state.content.width() << " x " << each.state.content.height();
}
