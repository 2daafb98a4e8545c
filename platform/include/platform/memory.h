// Memory that two processes share by passing a descriptor.
#pragma once

#include "platform/mapping.h"
#include "platform/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// Memory that is handed to peers: its size is fixed for good, so that a peer that maps it is never
// hit by its shrinking, and nobody can write it. That is a property of the memory and not of the
// descriptor: a peer could open a descriptor that only reads anew under /proc, to write.
struct SealedMemory
{
    UniqueFd fd; // close-on-exec
    size_t size = 0;

    explicit operator bool() const { return bool(fd); }
};

// Memory that holds these bytes. Without a descriptor, with errno set, on failure. `name` only
// shows in listings of the system.
SealedMemory platform_memory_of(const char *name, std::string_view bytes);
// Zeroed memory of `size` bytes that goes on changing under its peers' eyes: `writer` becomes the
// one mapping that can write it. Without a descriptor, with errno set, on failure.
SealedMemory platform_memory_shared(const char *name, size_t size, MappedMemory *writer);
// The size of memory that came from a peer: it is of this kind and, with `sealed`, can't shrink any
// more. -1 with errno set; EPERM when it is something else or could still shrink.
int64_t platform_memory_size(int fd, bool sealed);
