#include "app/display/ResizeHints.h"

#include "app/display/X11.h"

#include <QWindow>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <xcb/xcb.h>

namespace {

// The property WM_NORMAL_HINTS, as the Inter-Client Communication Conventions lay it out.
enum Field
{
    FLAGS = 0,
    LEAST = 5,
    LARGEST = 7,
    ASPECT_LEAST = 11,
    ASPECT_LARGEST = 13,
    BASE = 15,
    FIELDS = 18
};
constexpr uint32_t HAS_LEAST = 1 << 4;
constexpr uint32_t HAS_LARGEST = 1 << 5;
constexpr uint32_t HAS_ASPECT = 1 << 7;
constexpr uint32_t HAS_BASE = 1 << 8;

using NormalHints = std::array<uint32_t, FIELDS>;

// Position and gravity are Qt's.
NormalHints hintsOf(xcb_connection_t *connection, xcb_window_t window)
{
    NormalHints hints{};
    const xcb_get_property_cookie_t asked =
        xcb_get_property(connection, 0, window, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 0,
                         uint32_t(hints.size()));
    const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
        xcb_get_property_reply(connection, asked, nullptr), std::free);
    if (reply && reply->format == 32)
        std::memcpy(hints.data(), xcb_get_property_value(reply.get()),
                    size_t(xcb_get_property_value_length(reply.get())));
    return hints;
}

void put(NormalHints &hints, uint32_t flag, Field field, QSize size)
{
    if (size.isEmpty() && flag != HAS_BASE) {
        hints[FLAGS] &= ~flag;
        return;
    }
    hints[FLAGS] |= flag;
    hints[size_t(field)] = uint32_t(size.width());
    hints[size_t(field) + 1] = uint32_t(size.height());
}

} // namespace

bool setResizeHints(QWindow *window, const ResizeHints &wanted)
{
    xcb_connection_t *connection = x11Connection();
    if (!connection || !window || !window->handle())
        return false;
    const auto id = xcb_window_t(window->winId());
    NormalHints hints = hintsOf(connection, id);
    put(hints, HAS_LEAST, LEAST, wanted.least);
    put(hints, HAS_LARGEST, LARGEST, wanted.largest);
    put(hints, HAS_ASPECT, ASPECT_LEAST, wanted.aspect);
    put(hints, HAS_ASPECT, ASPECT_LARGEST, wanted.aspect);
    put(hints, HAS_BASE, BASE, wanted.base);
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NORMAL_HINTS,
                        XCB_ATOM_WM_SIZE_HINTS, 32, uint32_t(hints.size()), hints.data());
    xcb_flush(connection);
    return true;
}
