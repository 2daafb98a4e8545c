// Frame buffers for tests, right and wrong.
#pragma once

#include "platform/memory.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstdint>
#include <unistd.h>

enum class Seal
{
    yes,
    no
};

// Memory of `size` bytes with a control block at its start.
inline UniqueFd screen_memory(const display_fbctl &control, uint64_t size, Seal seal = Seal::yes)
{
    UniqueFd fd(platform_memory_create("test screen", size));
    if (size >= sizeof control)
        (void)!pwrite(fd.get(), &control, sizeof control, 0);
    if (seal == Seal::yes)
        platform_memory_seal(fd.get());
    return fd;
}

inline display_fbctl screen_control(uint32_t width, uint32_t height)
{
    return {DISPLAY_MAGIC, DISPLAY_VERSION, width, height, width * 4, 0, 0};
}

inline UniqueFd screen_memory(uint32_t width, uint32_t height)
{
    return screen_memory(screen_control(width, height),
                         DISPLAY_PIXELS_OFFSET + uint64_t{width} * height * 4);
}
