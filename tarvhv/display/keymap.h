// From the keys of the host's keyboard to the numbers that a guest's keyboard sends.
#pragma once

#include <cstdint>

class QKeyEvent;

// The XT set 1 number (0x80 set for the E0 keys) of a key of the Linux kernel (KEY_* in its
// input-event-codes.h); 0 when a guest's keyboard has no such key.
uint32_t keymap_from_evdev(uint32_t code);
// The number for a Qt::Key of a US keyboard, for platforms that report no key codes. `keypad`: the
// key is on the numeric keypad.
uint32_t keymap_from_qt(int key, bool keypad);
// The number for a key event: by its place on the keyboard where the platform tells it, else by
// what it means. 0 when there is none.
uint32_t keymap_number(const QKeyEvent &event);
