// The user's wish that a display window takes every key, also those of the desktop.
#pragma once

namespace KeyboardLock {

bool isOn();
void setOn(bool on);

} // namespace KeyboardLock
