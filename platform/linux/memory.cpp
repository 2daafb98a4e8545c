#include "platform/memory.h"

#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

int platform_memory_create(const char *name, uint64_t size)
{
    UniqueFd fd(memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd || ftruncate(fd.get(), off_t(size)) != 0)
        return -1;
    return fd.release();
}

int platform_memory_seal(int fd)
{
    return fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL);
}

int platform_memory_read_only(int fd)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    return open(path, O_RDONLY | O_CLOEXEC);
}

int64_t platform_memory_size(int fd, bool sealed)
{
    // Only a memory file has seals to ask for; any other descriptor fails here.
    const int seals = fcntl(fd, F_GET_SEALS);
    struct stat status;
    if (seals < 0 || (sealed && (seals & F_SEAL_SHRINK) == 0)) {
        errno = EPERM;
        return -1;
    }
    return fstat(fd, &status) == 0 ? int64_t(status.st_size) : -1;
}
