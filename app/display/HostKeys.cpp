#include "app/display/HostKeys.h"

#include <QGuiApplication>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include <xcb/xcb.h>

bool HostKeys::isAnyPressed()
{
    const auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11)
        return QGuiApplication::queryKeyboardModifiers() != Qt::NoModifier;
    const std::unique_ptr<xcb_query_keymap_reply_t, decltype(&std::free)> reply(
        xcb_query_keymap_reply(x11->connection(), xcb_query_keymap(x11->connection()), nullptr),
        std::free);
    return reply && std::any_of(std::begin(reply->keys), std::end(reply->keys),
                                [](uint8_t eight) { return eight != 0; });
}
