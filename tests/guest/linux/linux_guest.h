// The Linux guest: a disk image that a BIOS or a UEFI boots, with a kernel of Debian and a small
// initial file system. On the serial line it prints lines that begin with "guest: ":
//
//   boot N                                 how often this disk was booted
//   tick N clock S rtc S                   once a second: seconds of the system's and the CMOS
//   clock disk NAME driver DRIVER sectors N      each disk and CD card NAME driver DRIVER mac MAC
//   each network card, then one of card NAME address A host says 'TEXT'   what port P of the host
//   sent, P the MAC's last two bytes card NAME no address, carrier C        0: no cable screen N
//   WxH  |  screen N unplugged    whenever the preferred size of a screen changes input NAME each
//   input device that is read key CODE VALUE, wheel CODE STEPS       Linux's codes; 8 is the
//   vertical wheel, up positive pointer X Y                            an absolute position, 0 to
//   LINUX_POINTER_MAX power button                           then it powers off
#pragma once

#include <cstdint>

// Each screen is filled with one colour (xRGB).
inline constexpr uint32_t LINUX_COLOURS[] = {0x2040a0, 0xa02040, 0x40a020, 0xa0a040};
// The pointer's image: a square of one colour (premultiplied ARGB).
inline constexpr uint32_t LINUX_CURSOR_SIZE = 64;
inline constexpr uint32_t LINUX_CURSOR_COLOUR = 0x80402010;
inline constexpr int LINUX_CURSOR_HOT_X = 7;
inline constexpr int LINUX_CURSOR_HOT_Y = 11;
inline constexpr int LINUX_POINTER_MAX = 0x7fff;
