// Files: locking opens and the path behind a descriptor.
#pragma once

#include "platform/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

enum class FileLock
{
    none,
    shared,
    exclusive
};

// openat(2) that takes a lock with the open. With O_NONBLOCK a lock held elsewhere is EWOULDBLOCK,
// else it is waited for. With O_TRUNC the file is emptied only once the lock is held. `mode` is
// used with O_CREAT. The descriptor is close-on-exec. -1 with errno set.
int platform_openat_locked(int dirfd, const char *path, int flags, FileLock lock, mode_t mode);
// Takes a lock on an open file; it is waited for, whoever holds it. 0, or -1 with errno set.
int platform_lock(int fd, FileLock lock);
// The path of an open file, cut at `size` - 1 bytes. 0, or -1 with errno set.
int platform_fd_path(int fd, char *buffer, size_t size);
// Reserves `size` bytes for a file without changing its length, so that writing them can't fail
// for want of space. 0, or -1 with errno set (ENOSPC); ENOTSUP where the file system can't.
int platform_reserve(int fd, uint64_t size);
// A pipe, both ends close-on-exec. 0, or -1 with errno set.
int platform_pipe(UniqueFd *reader, UniqueFd *writer);
