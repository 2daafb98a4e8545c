#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"

#include "platform/file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The directory of the lock files, opened once; -1 with errno set while that fails.
int lock_directory()
{
    static int lockd = -1;
    if (lockd != -1)
        return lockd;
    const char *path = config_get_path("vm_lock_dir");
    if (path == nullptr) {
        errno = ENOENT;
        return -1;
    }
    mkdirat_p(AT_FDCWD, path, 0755);
    lockd = open(path, O_RDONLY | O_CLOEXEC);
    return lockd;
}

int open_lock(const char *name, bool exclusive, int flags)
{
    const int directory = lock_directory();
    if (directory == -1)
        return -1;
    return platform_openat_locked(directory, name, O_RDWR | O_CREAT | flags,
                                  exclusive ? FileLock::exclusive : FileLock::shared, 0600);
}

} // namespace

int flock_lock(const char *name, bool exclusive)
{
    return open_lock(name, exclusive, 0);
}

int flock_trylock(const char *name, bool exclusive)
{
    return open_lock(name, exclusive, O_NONBLOCK);
}

void flock_unlock(int fd)
{
    if (fd != -1)
        close(fd);
}
