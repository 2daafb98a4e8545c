// Memory that two processes share by passing a descriptor.
#pragma once

#include <cstdint>

// New memory of `size` bytes, zeroed. A descriptor (close-on-exec), or -1 with errno set. `name`
// only shows in listings of the system.
int platform_memory_create(const char *name, uint64_t size);
// Fixes the size for good: a peer that maps the memory can't be hit by its shrinking. 0, or -1 with
// errno set.
int platform_memory_seal(int fd);
// A second descriptor that can only read the same memory. -1 with errno set.
int platform_memory_read_only(int fd);
// The size of memory that came from a peer: it is of this kind and, with `sealed`, can't shrink any
// more. -1 with errno set; EPERM when it is something else or could still shrink.
int64_t platform_memory_size(int fd, bool sealed);
