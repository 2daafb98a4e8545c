#include "app/display/X11.h"

#include <QGuiApplication>

xcb_connection_t *x11Connection()
{
    const auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    // Platforms without an X server can have the interface, too.
    return x11 ? x11->connection() : nullptr;
}
