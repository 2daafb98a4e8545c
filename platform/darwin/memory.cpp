#include "platform/memory.h"

#include <cerrno>

// Shared memory has no seals here: whoever gets it can write it and let it shrink under its peers.

SealedMemory platform_memory_of(const char *, std::string_view)
{
    errno = ENOTSUP;
    return {};
}

SealedMemory platform_memory_shared(const char *, size_t, MappedMemory *)
{
    errno = ENOTSUP;
    return {};
}

int64_t platform_memory_size(int, bool)
{
    errno = EPERM;
    return -1;
}
