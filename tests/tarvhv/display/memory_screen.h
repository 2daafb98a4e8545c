// Frame buffers for tests, right and wrong.
#pragma once

#include "platform/memory.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstdint>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

// Memory of `size` bytes that begins with a control block.
inline UniqueFd screen_memory(const display_fbctl &control, uint64_t size)
{
    std::string bytes(reinterpret_cast<const char *>(&control), sizeof control);
    bytes.resize(size);
    return platform_memory_of("test screen", bytes).fd;
}

// Memory of the same kind that its maker could still shrink.
inline UniqueFd unsealed_memory(uint64_t size)
{
    UniqueFd fd(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    (void)!ftruncate(fd.get(), off_t(size));
    return fd;
}

inline display_fbctl screen_control(uint32_t width, uint32_t height)
{
    return {DISPLAY_MAGIC, DISPLAY_VERSION, width, height, width * 4, 0, 0};
}

inline uint64_t screen_size(uint32_t width, uint32_t height)
{
    return DISPLAY_PIXELS_OFFSET + uint64_t{width} * height * 4;
}

inline UniqueFd screen_memory(uint32_t width, uint32_t height)
{
    return screen_memory(screen_control(width, height), screen_size(width, height));
}
