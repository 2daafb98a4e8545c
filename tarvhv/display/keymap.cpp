#include "tarvhv/display/keymap.h"

#include <QGuiApplication>
#include <QKeyEvent>

#include <iterator>

namespace {

// Key codes of X11 and of Wayland's keyboards are those of the kernel, shifted by this much.
constexpr uint32_t NATIVE_OFFSET = 8;

// Kernel codes 1 to 83 are the XT numbers themselves: the kernel took its first codes from set 1.
constexpr uint32_t SAME_NUMBER_LAST = 83;

struct Pair
{
    uint32_t from;
    uint32_t number;
};

// The others, in the kernel's order. Numbers from 0x80 on are those that set 1 writes with the
// prefix E0; Pause, a sequence of its own, goes by 0xc6.
constexpr Pair EVDEV[] = {
    {86, 0x56},  // the key beside the left Shift of ISO keyboards
    {87, 0x57},  // F11
    {88, 0x58},  // F12
    {89, 0x73},  // Ro
    {91, 0x77},  // Hiragana
    {92, 0x79},  // Henkan
    {93, 0x70},  // Katakana / Hiragana
    {94, 0x7b},  // Muhenkan
    {96, 0x9c},  // keypad Enter
    {97, 0x9d},  // right Control
    {98, 0xb5},  // keypad /
    {99, 0xb7},  // Print Screen
    {100, 0xb8}, // right Alt
    {102, 0xc7}, // Home
    {103, 0xc8}, // Up
    {104, 0xc9}, // Page Up
    {105, 0xcb}, // Left
    {106, 0xcd}, // Right
    {107, 0xcf}, // End
    {108, 0xd0}, // Down
    {109, 0xd1}, // Page Down
    {110, 0xd2}, // Insert
    {111, 0xd3}, // Delete
    {113, 0xa0}, // mute
    {114, 0xae}, // volume down
    {115, 0xb0}, // volume up
    {116, 0xde}, // power
    {117, 0x59}, // keypad =
    {119, 0xc6}, // Pause
    {121, 0x7e}, // keypad ,
    {124, 0x7d}, // Yen
    {125, 0xdb}, // left Meta
    {126, 0xdc}, // right Meta
    {127, 0xdd}, // Menu
    {128, 0xe8}, // stop
    {140, 0xa1}, // calculator
    {142, 0xdf}, // sleep
    {143, 0xe3}, // wake up
    {155, 0xec}, // mail
    {156, 0xe6}, // bookmarks
    {157, 0xeb}, // computer
    {158, 0xea}, // back
    {159, 0xe9}, // forward
    {163, 0x99}, // next track
    {164, 0xa2}, // play / pause
    {165, 0x90}, // previous track
    {166, 0xa4}, // stop track
    {172, 0xb2}, // home page
    {173, 0xe7}, // refresh
    {226, 0xed}, // media
};

// Main block of a US keyboard, with the characters that Shift gives.
constexpr Pair QT_MAIN[] = {
    {Qt::Key_Escape, 0x01},
    {Qt::Key_1, 0x02},
    {Qt::Key_Exclam, 0x02},
    {Qt::Key_2, 0x03},
    {Qt::Key_At, 0x03},
    {Qt::Key_3, 0x04},
    {Qt::Key_NumberSign, 0x04},
    {Qt::Key_4, 0x05},
    {Qt::Key_Dollar, 0x05},
    {Qt::Key_5, 0x06},
    {Qt::Key_Percent, 0x06},
    {Qt::Key_6, 0x07},
    {Qt::Key_AsciiCircum, 0x07},
    {Qt::Key_7, 0x08},
    {Qt::Key_Ampersand, 0x08},
    {Qt::Key_8, 0x09},
    {Qt::Key_Asterisk, 0x09},
    {Qt::Key_9, 0x0a},
    {Qt::Key_ParenLeft, 0x0a},
    {Qt::Key_0, 0x0b},
    {Qt::Key_ParenRight, 0x0b},
    {Qt::Key_Minus, 0x0c},
    {Qt::Key_Underscore, 0x0c},
    {Qt::Key_Equal, 0x0d},
    {Qt::Key_Plus, 0x0d},
    {Qt::Key_Backspace, 0x0e},
    {Qt::Key_Tab, 0x0f},
    {Qt::Key_Backtab, 0x0f},
    {Qt::Key_Q, 0x10},
    {Qt::Key_W, 0x11},
    {Qt::Key_E, 0x12},
    {Qt::Key_R, 0x13},
    {Qt::Key_T, 0x14},
    {Qt::Key_Y, 0x15},
    {Qt::Key_U, 0x16},
    {Qt::Key_I, 0x17},
    {Qt::Key_O, 0x18},
    {Qt::Key_P, 0x19},
    {Qt::Key_BracketLeft, 0x1a},
    {Qt::Key_BraceLeft, 0x1a},
    {Qt::Key_BracketRight, 0x1b},
    {Qt::Key_BraceRight, 0x1b},
    {Qt::Key_Return, 0x1c},
    {Qt::Key_Control, 0x1d},
    {Qt::Key_A, 0x1e},
    {Qt::Key_S, 0x1f},
    {Qt::Key_D, 0x20},
    {Qt::Key_F, 0x21},
    {Qt::Key_G, 0x22},
    {Qt::Key_H, 0x23},
    {Qt::Key_J, 0x24},
    {Qt::Key_K, 0x25},
    {Qt::Key_L, 0x26},
    {Qt::Key_Semicolon, 0x27},
    {Qt::Key_Colon, 0x27},
    {Qt::Key_Apostrophe, 0x28},
    {Qt::Key_QuoteDbl, 0x28},
    {Qt::Key_QuoteLeft, 0x29},
    {Qt::Key_AsciiTilde, 0x29},
    {Qt::Key_Shift, 0x2a},
    {Qt::Key_Backslash, 0x2b},
    {Qt::Key_Bar, 0x2b},
    {Qt::Key_Z, 0x2c},
    {Qt::Key_X, 0x2d},
    {Qt::Key_C, 0x2e},
    {Qt::Key_V, 0x2f},
    {Qt::Key_B, 0x30},
    {Qt::Key_N, 0x31},
    {Qt::Key_M, 0x32},
    {Qt::Key_Comma, 0x33},
    {Qt::Key_Less, 0x33},
    {Qt::Key_Period, 0x34},
    {Qt::Key_Greater, 0x34},
    {Qt::Key_Slash, 0x35},
    {Qt::Key_Question, 0x35},
    {Qt::Key_Alt, 0x38},
    {Qt::Key_Space, 0x39},
    {Qt::Key_CapsLock, 0x3a},
    {Qt::Key_F1, 0x3b},
    {Qt::Key_F2, 0x3c},
    {Qt::Key_F3, 0x3d},
    {Qt::Key_F4, 0x3e},
    {Qt::Key_F5, 0x3f},
    {Qt::Key_F6, 0x40},
    {Qt::Key_F7, 0x41},
    {Qt::Key_F8, 0x42},
    {Qt::Key_F9, 0x43},
    {Qt::Key_F10, 0x44},
    {Qt::Key_NumLock, 0x45},
    {Qt::Key_ScrollLock, 0x46},
    {Qt::Key_F11, 0x57},
    {Qt::Key_F12, 0x58},
    {Qt::Key_Enter, 0x9c},
    {Qt::Key_Print, 0xb7},
    {Qt::Key_SysReq, 0xb7},
    {Qt::Key_AltGr, 0xb8},
    {Qt::Key_Home, 0xc7},
    {Qt::Key_Up, 0xc8},
    {Qt::Key_PageUp, 0xc9},
    {Qt::Key_Left, 0xcb},
    {Qt::Key_Right, 0xcd},
    {Qt::Key_End, 0xcf},
    {Qt::Key_Down, 0xd0},
    {Qt::Key_PageDown, 0xd1},
    {Qt::Key_Insert, 0xd2},
    {Qt::Key_Delete, 0xd3},
    {Qt::Key_Pause, 0xc6},
    {Qt::Key_Meta, 0xdb},
    {Qt::Key_Super_L, 0xdb},
    {Qt::Key_Super_R, 0xdc},
    {Qt::Key_Menu, 0xdd},
};

// Keypad, with Num Lock on and off.
constexpr Pair QT_KEYPAD[] = {
    {Qt::Key_7, 0x47},      {Qt::Key_Home, 0x47},     {Qt::Key_8, 0x48},
    {Qt::Key_Up, 0x48},     {Qt::Key_9, 0x49},        {Qt::Key_PageUp, 0x49},
    {Qt::Key_Minus, 0x4a},  {Qt::Key_4, 0x4b},        {Qt::Key_Left, 0x4b},
    {Qt::Key_5, 0x4c},      {Qt::Key_Clear, 0x4c},    {Qt::Key_6, 0x4d},
    {Qt::Key_Right, 0x4d},  {Qt::Key_Plus, 0x4e},     {Qt::Key_1, 0x4f},
    {Qt::Key_End, 0x4f},    {Qt::Key_2, 0x50},        {Qt::Key_Down, 0x50},
    {Qt::Key_3, 0x51},      {Qt::Key_PageDown, 0x51}, {Qt::Key_0, 0x52},
    {Qt::Key_Insert, 0x52}, {Qt::Key_Period, 0x53},   {Qt::Key_Comma, 0x53},
    {Qt::Key_Delete, 0x53}, {Qt::Key_Asterisk, 0x37}, {Qt::Key_Equal, 0x59},
    {Qt::Key_Enter, 0x9c},  {Qt::Key_Return, 0x9c},   {Qt::Key_Slash, 0xb5},
};

template <size_t Size>
uint32_t look_up(const Pair (&pairs)[Size], uint32_t from)
{
    for (const Pair &each : pairs)
        if (each.from == from)
            return each.number;
    return 0;
}

// Whether this platform's scan codes are the kernel's codes with the offset.
bool has_kernel_codes()
{
    const QString platform = QGuiApplication::platformName();
    return platform == QLatin1String("xcb") || platform.startsWith(QLatin1String("wayland"));
}

} // namespace

uint32_t keymap_from_evdev(uint32_t code)
{
    return code <= SAME_NUMBER_LAST ? code : look_up(EVDEV, code);
}

uint32_t keymap_from_qt(int key, bool keypad)
{
    const uint32_t number = keypad ? look_up(QT_KEYPAD, uint32_t(key)) : 0;
    return number != 0 ? number : look_up(QT_MAIN, uint32_t(key));
}

uint32_t keymap_number(const QKeyEvent &event)
{
    if (event.nativeScanCode() > NATIVE_OFFSET && has_kernel_codes())
        return keymap_from_evdev(event.nativeScanCode() - NATIVE_OFFSET);
    return keymap_from_qt(event.key(), event.modifiers().testFlag(Qt::KeypadModifier));
}
