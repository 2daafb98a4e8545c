// What the test guests show. They are disk images of 1 MiB that any BIOS boots; each lies at
// <build>/tests/guest/NAME.img.
//
//   bars        colour bars, 1024 x 768; F1 to F4 change to one of GUEST_MODES
//   repaint20   the whole screen of 1920 x 1080 repainted 20 times a second
//   repaint40   the same 40 times a second
//   repaint1000 the same as often as the machine is able to: its frames tell the guest's speed
//   text        80 x 25 characters, no cursor: nothing moves
//   writer      writes its disk from 1 MiB to 32 MiB again and again
#pragma once

#include <cstdint>

struct guest_size
{
    int width;  // pixels
    int height; // pixels
};

// bars: eight bars of equal width from left to right, in these colours (xRGB).
inline constexpr int GUEST_BAR_COUNT = 8;
inline constexpr uint32_t GUEST_BARS[GUEST_BAR_COUNT] = {0xffffff, 0xffff00, 0x00ffff, 0x00ff00,
                                                         0xff00ff, 0xff0000, 0x0000ff, 0x000000};
inline constexpr guest_size GUEST_BARS_SIZE = {1024, 768};
// The sizes that the keys F1 to F4 (codes 0x3b to 0x3e) set. The bars are drawn anew, the blocks
// go away and their count starts at 0 again.
inline constexpr guest_size GUEST_MODES[] = {{640, 480}, {800, 600}, {1024, 768}, {1280, 960}};

constexpr uint32_t guest_bar_colour(int width, int x)
{
    return GUEST_BARS[x / (width / GUEST_BAR_COUNT)];
}

// bars: every byte of the keyboard (set 1: a press is the code, a release the code with 0x80 set,
// prefixes 0xe0 and 0xe1 are bytes of their own), F1 to F4 presses aside, paints one square block.
// Block `count` (from 0) stands in rows that fill from the left, the first row lowest; after
// GUEST_BLOCK_ROWS rows the lowest is painted over.
inline constexpr int GUEST_BLOCK_SIZE = 32;
inline constexpr int GUEST_BLOCK_ROWS = 4;

constexpr int guest_block_x(guest_size screen, int count)
{
    return GUEST_BLOCK_SIZE * (count % (screen.width / GUEST_BLOCK_SIZE));
}
constexpr int guest_block_y(guest_size screen, int count)
{
    const int row = count / (screen.width / GUEST_BLOCK_SIZE) % GUEST_BLOCK_ROWS;
    return screen.height - GUEST_BLOCK_SIZE * (row + 1);
}
constexpr uint32_t guest_block_colour(uint8_t code, int count)
{
    return uint32_t{code} << 16 | uint32_t{uint8_t(~code)} << 8 | (uint32_t(count) & 0xff);
}

// repaint: the number of the frame, lowest bit first, as white (1) and black (0) squares in the top
// rows. Below them every row has one colour that changes with each frame.
inline constexpr guest_size GUEST_REPAINT_SIZE = {1920, 1080};
inline constexpr int GUEST_COUNTER_BITS = 16;
inline constexpr int GUEST_COUNTER_BLOCK = 16;
inline constexpr int GUEST_COUNTER_STEP = 64; // pixels from square to square

// text: every row says GUEST_TEXT_LABEL and its number in two digits, white on the background
// GUEST_TEXT_BACKGROUNDS[row % 8] (the six-bit text palette as QEMU widens it). Characters are 9 x
// 16 pixels.
inline constexpr guest_size GUEST_TEXT_SIZE = {720, 400};
inline constexpr int GUEST_TEXT_ROWS = 25;
inline constexpr int GUEST_TEXT_ROW_HEIGHT = 16;
inline constexpr char GUEST_TEXT_LABEL[] = "text guest row ";
inline constexpr uint32_t GUEST_TEXT_BACKGROUNDS[8] = {0x000000, 0x0000a8, 0x00a800, 0x00a8a8,
                                                       0xa80000, 0xa800a8, 0xa85700, 0xa8a8a8};
