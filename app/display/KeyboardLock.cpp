#include "app/display/KeyboardLock.h"

#include "app/kit/UserDefaults.h"

namespace {
const QString LOCK_KEYBOARD_KEY = QStringLiteral("lockKeyboard");
} // namespace

bool KeyboardLock::isOn()
{
    return UserDefaults::standard().boolForKey(LOCK_KEYBOARD_KEY);
}

void KeyboardLock::setOn(bool on)
{
    UserDefaults::standard().setBool(LOCK_KEYBOARD_KEY, on);
}
