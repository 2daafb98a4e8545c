#include "hostlib/utils/utils.h"

#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fts.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t PATH_SIZE = 1024;

// Closes a walk; errno is kept.
struct CloseWalk
{
    void operator()(FTS *walk) const
    {
        const int saved = errno;
        fts_close(walk);
        errno = saved;
    }
};
using Walk = std::unique_ptr<FTS, CloseWalk>;

// Logs what failed to be done to a path, and leaves the error in errno. Always -1.
int fail(const char *before, const char *path, const char *after, int error)
{
    dprintf(log_fd, "utils: %s%s%s: %s\r\n", before, path, after, std::strerror(error));
    errno = error;
    return -1;
}

// Removes what a step of the walk found. 0, or -1 (logged) with errno set.
int remove_entry(const FTSENT *entry)
{
    switch (entry->fts_info) {
    case FTS_DP:
    case FTS_F:
    case FTS_SL:
    case FTS_SLNONE:
        if (std::remove(entry->fts_accpath) == 0)
            return 0;
        return fail("", entry->fts_path, ": remove", errno);
    case FTS_DNR:
    case FTS_ERR:
    case FTS_NS:
        return fail("", entry->fts_path, "", entry->fts_errno);
    default:
        // Directories before their contents, and special files, which are left on purpose: their
        // directory then refuses to go.
        return 0;
    }
}

int remove_tree(char *path)
{
    char *const roots[] = {path, nullptr};
    const Walk walk(fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr));
    if (!walk)
        return fail("failed to remove ", path, "", errno);
    while (const FTSENT *entry = fts_read(walk.get()))
        if (remove_entry(entry) != 0)
            return -1;
    // The walk's end leaves errno at 0; anything else broke it off.
    return errno == 0 ? 0 : fail("failed to remove ", path, "", errno);
}

} // namespace

int mkdirat_p(int dirfd, const char *path, mode_t mode)
{
    const size_t length = std::strlen(path);
    const char *slash = length >= 2 ? std::strrchr(path + 1, '/') : nullptr;
    if (slash != nullptr) {
        const std::string parent(path, slash);
        if (faccessat(dirfd, parent.c_str(), X_OK, 0) != 0 && errno == ENOENT)
            mkdirat_p(dirfd, parent.c_str(), mode);
    }
    if (faccessat(dirfd, path, X_OK, 0) != 0)
        return mkdirat(dirfd, path, mode);
    return 0;
}

int rmdirat(int dirfd, const char *path)
{
    const int saved = errno;
    std::string whole = path;
    if (dirfd != AT_FDCWD && path[0] != '/') {
        char directory[PATH_SIZE];
        if (platform_fd_path(dirfd, directory, sizeof directory) != 0)
            return -1;
        whole = (std::string(directory) + "/" + path).substr(0, PATH_SIZE - 1);
    }
    if (remove_tree(whole.data()) != 0)
        return -1;
    errno = saved;
    return 0;
}
