#include "platform/file.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

int take_lock(int fd, FileLock lock, bool wait)
{
    if (lock == FileLock::none)
        return 0;
    const int operation = (lock == FileLock::exclusive ? LOCK_EX : LOCK_SH) | (wait ? 0 : LOCK_NB);
    int result;
    while ((result = flock(fd, operation)) != 0 && errno == EINTR)
        ;
    return result;
}

} // namespace

int platform_openat_locked(int dirfd, const char *path, int flags, FileLock lock, mode_t mode)
{
    const int at_open = lock == FileLock::none ? flags : flags & ~O_TRUNC;
    UniqueFd fd(openat(dirfd, path, at_open | O_CLOEXEC, mode));
    if (!fd || take_lock(fd.get(), lock, (flags & O_NONBLOCK) == 0) != 0)
        return -1;
    if ((flags & O_TRUNC) != 0 && at_open != flags && ftruncate(fd.get(), 0) != 0)
        return -1;
    return fd.release();
}

int platform_lock(int fd, FileLock lock)
{
    return take_lock(fd, lock, /*wait=*/true);
}

int platform_fd_path(int fd, char *buffer, size_t size)
{
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, buffer, size - 1);
    if (length < 0) {
        // What procfs lacks is a descriptor that is not open.
        if (errno == ENOENT)
            errno = EBADF;
        return -1;
    }
    buffer[length] = '\0';
    return 0;
}

int platform_reserve(int fd, uint64_t size)
{
    if (size == 0)
        return 0;
    int result;
    while ((result = fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, off_t(size))) != 0 && errno == EINTR)
        ;
    if (result != 0 && errno == EOPNOTSUPP)
        errno = ENOTSUP;
    return result;
}

int platform_pipe(UniqueFd *reader, UniqueFd *writer)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    reader->reset(ends[0]);
    writer->reset(ends[1]);
    return 0;
}
