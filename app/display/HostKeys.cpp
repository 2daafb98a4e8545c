#include "app/display/HostKeys.h"

#include "app/display/X11.h"

#include <QGuiApplication>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <xcb/xcb.h>

bool HostKeys::isAnyPressed()
{
    xcb_connection_t *connection = x11Connection();
    if (!connection)
        return QGuiApplication::queryKeyboardModifiers() != Qt::NoModifier;
    const std::unique_ptr<xcb_query_keymap_reply_t, decltype(&std::free)> reply(
        xcb_query_keymap_reply(connection, xcb_query_keymap(connection), nullptr), std::free);
    return reply && std::any_of(std::begin(reply->keys), std::end(reply->keys),
                                [](uint8_t eight) { return eight != 0; });
}
