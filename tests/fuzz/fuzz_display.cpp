// Feeds packets and memory of a hostile supervisor to what a viewer knows of its screen.
//
// The input is a series of packets; the byte after each says which memory comes with it: none, or
// one whose control block and size are the packet's arguments and what follows it in the input.
#include "tarvhv/display/packets.h"
#include "tests/tarvhv/display/memory_screen.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr size_t PIXELS_MAX = 1 << 16;

UniqueFd memory_of(const void *bytes, size_t length, size_t size, bool sealed)
{
    if (!sealed)
        return unsealed_memory(size);
    std::string text(static_cast<const char *>(bytes), std::min(length, size));
    text.resize(size);
    return platform_memory_of("fuzz", text).fd;
}

DisplayState first_screen()
{
    const display_fbctl control{DISPLAY_MAGIC, DISPLAY_VERSION, 16, 16, 64, 0, 0};
    const UniqueFd memory = memory_of(&control, sizeof control, 8192, true);
    return DisplayState(*MappedFrame::map(memory.get()), false, true, 0, true);
}

// Reads all that the state says can be read.
void check(DisplayState &state)
{
    const MappedFrame &buffer = state.buffer();
    const volatile uint8_t *last =
        buffer.pixels() + size_t(buffer.stride()) * size_t(buffer.height()) - 1;
    (void)*last;
    const DisplayChanges changes = state.takeChanges();
    if (state.damage().rects().size() > Damage::MAX)
        abort();
    for (const ScreenRect &each : state.damage().rects())
        if (each.x < 0 || each.y < 0 || each.width <= 0 || each.height <= 0 ||
            each.x + each.width > buffer.width() || each.y + each.height > buffer.height())
            abort();
    if (changes.cursor && changes.cursor->pixels.size() !=
                              size_t(changes.cursor->width) * size_t(changes.cursor->height))
        abort();
    state.damage().take();
    state.takeSerial();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    DisplayState state = first_screen();
    while (size > sizeof(display_packet)) {
        display_packet packet;
        std::memcpy(&packet, data, sizeof packet);
        const uint8_t kind = data[sizeof packet];
        data += sizeof packet + 1;
        size -= sizeof packet + 1;
        UniqueFd memory;
        if ((kind & 1) != 0)
            memory = memory_of(data, size, DISPLAY_PIXELS_OFFSET + (kind >> 2) * PIXELS_MAX / 64,
                               (kind & 2) != 0);
        // Changes are taken at times only, as a turn of the event loop takes many packets.
        if (!state.feed(packet, std::move(memory)) || (kind & 4) != 0)
            check(state);
    }
    check(state);
    return 0;
}
