// The connection to the X server, for what Qt does not ask of it.
#pragma once

struct xcb_connection_t;

// Qt's own; null on other window systems.
xcb_connection_t *x11Connection();
