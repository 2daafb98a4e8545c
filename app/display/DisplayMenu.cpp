#include "app/display/DisplayMenu.h"

#include "tarvhv/cli2/display_protocol.h"

namespace {

// Whether the window shows the guest at this scale.
bool shows(const DisplayMenuState &state, double scale)
{
    return state.content * scale == QSizeF(state.guest.width, state.guest.height);
}

bool canZoomIn(const DisplayMenuState &state)
{
    const QSizeF pixels = state.content * guestScale(state.guest);
    return pixels.height() < state.guest.height && pixels.width() < state.guest.width;
}

bool canZoomOut(const DisplayMenuState &state)
{
    return state.content.height() > CONTENT_MINIMUM.height() &&
           state.content.width() > CONTENT_MINIMUM.width();
}

bool canShowActualSize(const DisplayMenuState &state)
{
    return (state.content.width() <= state.visible.width() ||
            state.content.height() <= state.visible.height()) &&
           !shows(state, guestScale(state.guest));
}

} // namespace

MenuItemState displayMenuItemState(const QString &action, const QString &identifier,
                                   const DisplayMenuState &state)
{
    if (identifier == QLatin1String("USEHIDPI")) {
        if (!state.allowsLiveResize)
            return {false, std::nullopt};
        return {true, state.guest.hdpi};
    }
    const auto enabled = [](bool on) { return MenuItemState{on, std::nullopt}; };
    if (action == QLatin1String("paste:"))
        return enabled((state.caps & DISPLAY_CAP_PASTE) != 0);
    if (action == QLatin1String("copy:"))
        return enabled((state.caps & DISPLAY_CAP_COPY) != 0);
    if (action == QLatin1String("setResolution:"))
        return enabled(state.allowsLiveResize);
    if (action == QLatin1String("zoomIn:"))
        return enabled(canZoomIn(state));
    if (action == QLatin1String("zoomOut:"))
        return enabled(canZoomOut(state));
    if (action == QLatin1String("zoomImageToActualSize:"))
        return enabled(canShowActualSize(state));
    if (action == QLatin1String("zoomImageToHalfSize:"))
        return enabled(!shows(state, guestHalfScale(state.guest)));
    if (action == QLatin1String("lockKeyboard:"))
        return {true, state.locksKeyboard};
    return {};
}
