#include "platform/file.h"

#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int lock_flag(FileLock lock)
{
    switch (lock) {
    case FileLock::shared:
        return O_SHLOCK;
    case FileLock::exclusive:
        return O_EXLOCK;
    default:
        return 0;
    }
}

} // namespace

int platform_openat_locked(int dirfd, const char *path, int flags, FileLock lock, mode_t mode)
{
    // The system empties a file before it waits for the lock; a reader could see it empty.
    const int at_open = lock == FileLock::none ? flags : flags & ~O_TRUNC;
    int opened;
    do
        opened = openat(dirfd, path, at_open | lock_flag(lock) | O_CLOEXEC, mode);
    while (opened < 0 && errno == EINTR);
    UniqueFd fd(opened);
    if (!fd || (at_open != flags && ftruncate(fd.get(), 0) != 0))
        return -1;
    return fd.release();
}

int platform_lock(int fd, FileLock lock)
{
    if (lock == FileLock::none)
        return 0;
    int result;
    do
        result = flock(fd, lock == FileLock::exclusive ? LOCK_EX : LOCK_SH);
    while (result != 0 && errno == EINTR);
    return result;
}

int platform_fd_path(int fd, char *buffer, size_t size)
{
    char path[MAXPATHLEN];
    if (fcntl(fd, F_GETPATH, path) != 0)
        return -1;
    const size_t length = std::min(std::strlen(path), size - 1);
    std::memcpy(buffer, path, length);
    buffer[length] = '\0';
    return 0;
}

int platform_reserve(int fd, uint64_t size)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return -1;
    // What is reserved is counted from the blocks that the file has; st_blocks counts 512 bytes
    // each.
    const uint64_t present = uint64_t(status.st_blocks) * 512;
    if (present >= size)
        return 0;
    fstore_t request = {};
    request.fst_flags = F_ALLOCATEALL;
    request.fst_posmode = F_PEOFPOSMODE;
    request.fst_length = off_t(size - present);
    return fcntl(fd, F_PREALLOCATE, &request) == -1 ? -1 : 0;
}

int platform_pipe(UniqueFd *reader, UniqueFd *writer)
{
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    reader->reset(ends[0]);
    writer->reset(ends[1]);
    return fcntl(ends[0], F_SETFD, FD_CLOEXEC) == 0 && fcntl(ends[1], F_SETFD, FD_CLOEXEC) == 0
               ? 0
               : -1;
}
