// Which menu items a display window offers: a pure function.
#pragma once

#include "app/display/displaygeometry.h"

#include <QString>

#include <cstdint>
#include <optional>

// What the items depend on.
struct DisplayMenuState
{
    GuestScreen guest;
    bool allowsLiveResize = false;
    uint32_t caps = 0; // DISPLAY_CAP_*
    QSizeF content;    // of the window
    QSizeF visible;    // the part of the screen that windows may cover
    bool locksKeyboard = false;
};

struct MenuItemState
{
    bool enabled = true;
    std::optional<bool> checked; // none: the item has no check mark
};

// Of the item with an action ("zoomIn:"), or with an identifier that it is known by.
MenuItemState displayMenuItemState(const QString &action, const QString &identifier,
                                   const DisplayMenuState &state);
