#include "app/kit/MenuItemForEvent.h"

#include <QMenu>

namespace {

bool matches(const QAction *item, const QKeyEvent *event)
{
    const QKeySequence shortcut = item->shortcut();
    return shortcut.count() == 1 && shortcut[0].keyboardModifiers() == event->modifiers() &&
           shortcut[0].key() == event->key();
}

QAction *firstMatch(const QList<QAction *> &items, const QKeyEvent *event)
{
    for (QAction *item : items) {
        if (item->menu()) {
            if (QAction *found = firstMatch(item->menu()->actions(), event))
                return found;
        } else if (matches(item, event)) {
            return item;
        }
    }
    return nullptr;
}

} // namespace

QAction *NSMenuItemForEvent(const QMenuBar *menu, const QKeyEvent *event)
{
    QAction *item = menu ? firstMatch(menu->actions(), event) : nullptr;
    return item && item->isEnabled() ? item : nullptr;
}
