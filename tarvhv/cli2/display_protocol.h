// What a supervisor and a viewer say to each other about one screen.
//
// A viewer asks the VM's service socket for `display` with {"index":N}. The answer's body describes
// the screen and carries two descriptors: the frame buffer (memory that only the supervisor writes)
// and one end of a SOCK_SEQPACKET pair, the display channel. On the channel every packet is one
// display_packet, some with one descriptor. The supervisor never waits for a viewer: what a viewer
// does not read is merged into one later packet, and a viewer that misbehaves is disconnected.
//
// Every descriptor but the channel is sealed memory (platform/memory.h). A receiver that maps it
// refuses what is not sealed against shrinking, as it could be made to fault.
//
// Body of the answer: "uuid", "name", "index", "total" (screens of the VM), "width", "height"
// (pixels), "hdpi", "live_resize" (booleans), "caps" (bit mask), "absolute" (boolean: the guest
// takes absolute pointer positions).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

// Bits of "caps".
inline constexpr uint32_t DISPLAY_CAP_COPY = 0x4;  // the guest can hand over its pasteboard
inline constexpr uint32_t DISPLAY_CAP_PASTE = 0x8; // the guest can take the host's pasteboard

// Types of packets, with their arguments arg[0], arg[1] … and descriptor.
enum display_packet_type : uint32_t
{
    // From the supervisor.
    DISPLAY_DAMAGE = 1,     // x, y, width, height, serial, last: a rectangle changed. Rectangles of
                            // one serial belong together; `last` is 1 on the last of them. No more
                            // is sent until the viewer answered that serial.
    DISPLAY_MODE = 2,       // width, height, hdpi, live_resize; descriptor: the new frame buffer.
                            // All of it counts as damaged; no DAMAGE_DONE is due for it.
    DISPLAY_CURSOR = 3,     // width, height, hot x, hot y; descriptor: memory of width x height
                            // premultiplied ARGB32 pixels, top row first. 0 x 0 without a
                            // descriptor: the guest draws the pointer itself, or shows none.
    DISPLAY_POINTER = 4,    // absolute: whether the guest takes absolute positions now.
    DISPLAY_CAPS = 5,       // caps: the bits above, whenever they change.
    DISPLAY_PASTEBOARD = 6, // size in bytes; descriptor: memory with the pasteboard archive.
    DISPLAY_CLOSED = 7, // reason (display_close_reason): the screen is gone; then end of stream.

    // From the viewer.
    DISPLAY_DAMAGE_DONE = 64,     // serial: has been taken over into the viewer's next paint.
    DISPLAY_ACTIVE = 65,          // 1 while somebody looks, 0 while hidden: no damage is sent.
    DISPLAY_KEY = 66,             // number (XT set 1, 0x80 set for the E0 keys), down (0 or 1).
    DISPLAY_POINTER_ABS = 67,     // x, y in guest pixels, buttons (bit 0 left, 1 middle, 2 right,
                                  // 5 back, 6 forward)
    DISPLAY_POINTER_REL = 68,     // dx, dy, buttons
    DISPLAY_WHEEL = 69,           // vertical, horizontal steps; up and left are negative.
    DISPLAY_RESIZE = 70,          // width, height in pixels, hdpi: a request to the guest.
    DISPLAY_PASTEBOARD_ASK = 71,  // polling: 1 from the poll timer, 0 from an explicit copy.
    DISPLAY_PASTEBOARD_SEND = 72, // size in bytes; descriptor: memory with the archive.
};

enum display_close_reason : int32_t
{
    DISPLAY_CLOSE_STOPPED = 0, // the VM ended
    DISPLAY_CLOSE_REMOVED = 1, // the engine took its screens away, the VM runs on
    DISPLAY_CLOSE_REFUSED = 2, // the viewer broke the rules above
};

struct display_packet
{
    uint32_t type;
    int32_t arg[7];
};
static_assert(sizeof(display_packet) == 32);

// A packet with its first arguments, seven at most.
inline display_packet display_packet_of(uint32_t type, std::initializer_list<int32_t> arguments)
{
    display_packet packet{type, {}};
    std::copy(arguments.begin(), arguments.end(), packet.arg);
    return packet;
}

// The frame buffer: one page of control block, then the rows.
inline constexpr size_t DISPLAY_PIXELS_OFFSET = 4096;
inline constexpr uint32_t DISPLAY_MAGIC = 0x42465654; // "TVFB"
inline constexpr uint32_t DISPLAY_VERSION = 1;
inline constexpr uint32_t DISPLAY_WIDTH_MAX = 16384;
inline constexpr uint32_t DISPLAY_HEIGHT_MAX = 16384;
inline constexpr size_t DISPLAY_PASTEBOARD_MAX = 32 * 1024 * 1024;
// Pixels of a pointer's image, each way. QEMU makes none that is larger, whatever the guest's card
// asks for, as no hardware shows one.
inline constexpr uint32_t DISPLAY_CURSOR_MAX = 512;

struct display_fbctl
{
    uint32_t magic;    // DISPLAY_MAGIC
    uint32_t version;  // DISPLAY_VERSION
    uint32_t width;    // pixels
    uint32_t height;   // pixels
    uint32_t stride;   // bytes from row to row
    uint32_t reserved; // 0
    uint64_t frames;   // updates written so far; only grows
    // Pixels are 32-bit little-endian xRGB.
};
static_assert(sizeof(display_fbctl) <= DISPLAY_PIXELS_OFFSET);
