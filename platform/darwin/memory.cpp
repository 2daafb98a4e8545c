#include "platform/memory.h"

#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// Shared memory here has a name only until it is open, no seals, and no second opening of another
// kind; what can't be had says so.

int platform_memory_create(const char *, uint64_t size)
{
    // The system's names hold 31 characters.
    char name[32];
    std::snprintf(name, sizeof name, "/tarv.%08x%08x", arc4random(), arc4random());
    UniqueFd fd(shm_open(name, O_RDWR | O_CREAT | O_EXCL, 0600));
    if (!fd)
        return -1;
    shm_unlink(name);
    if (fcntl(fd.get(), F_SETFD, FD_CLOEXEC) != 0 || ftruncate(fd.get(), off_t(size)) != 0)
        return -1;
    return fd.release();
}

int platform_memory_seal(int)
{
    errno = ENOTSUP;
    return -1;
}

int platform_memory_read_only(int)
{
    errno = ENOTSUP;
    return -1;
}

int64_t platform_memory_size(int, bool)
{
    // Without seals, memory of a peer can always shrink or be something else.
    errno = EPERM;
    return -1;
}
