// The menu item whose shortcut a key event is.
#pragma once

#include <QAction>
#include <QKeyEvent>
#include <QMenuBar>

// The first item, depth first and in order, whose shortcut has exactly the event's key and
// modifiers (also that of the numeric pad): that item when it is enabled, else null. Null without a
// match.
QAction *NSMenuItemForEvent(const QMenuBar *menu, const QKeyEvent *event);
