#include "hostlib/utils/home_path.h"
#include "hostlib/utils/utils.h"

#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// Everything before the last name of a path, as dirname(3) has it.
std::string parent_directory(const std::string &path)
{
    const size_t name_end = path.find_last_not_of('/');
    if (name_end == std::string::npos)
        return path.empty() ? "." : "/";
    const size_t slash = path.find_last_of('/', name_end);
    if (slash == std::string::npos)
        return ".";
    const size_t end = path.find_last_not_of('/', slash);
    return end == std::string::npos ? "/" : path.substr(0, end + 1);
}

// The mode that follows the flags where they make a file.
mode_t creation_mode(int flags, va_list arguments)
{
    return (flags & O_CREAT) != 0 ? mode_t(va_arg(arguments, unsigned)) : 0644;
}

// Write-only streams always append, whether or not O_APPEND was asked for.
const char *stream_mode(int flags)
{
    switch (flags & O_ACCMODE) {
    case O_RDWR:
        return (flags & O_APPEND) != 0 ? "a+b" : "r+b";
    case O_WRONLY:
        return "ab";
    default:
        return "rb";
    }
}

} // namespace

int openx(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creation_mode(flags, arguments);
    va_end(arguments);
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const HomePath place = home_path(path);
    // Where the parent can't be made, opening the file says why.
    if ((flags & O_CREAT) != 0)
        mkdirat_p(place.dirfd, parent_directory(place.rest).c_str(), 0755);
    return openat(place.dirfd, place.rest, flags, mode);
}

int standard_fds_open()
{
    for (;;) {
        const int fd = open("/dev/null", O_RDWR);
        if (fd < 0)
            return -1;
        if (fd <= STDERR_FILENO)
            continue;
        close(fd);
        return 0;
    }
}

FILE *fopenat(int dirfd, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = creation_mode(flags, arguments);
    va_end(arguments);
    if (path == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    UniqueFd fd(openat(dirfd, path, flags, mode));
    if (!fd)
        return nullptr;
    FILE *stream = fdopen(fd.get(), stream_mode(flags));
    if (stream != nullptr)
        fd.release();
    return stream;
}

int renamex(const char *old_path, const char *new_path)
{
    const HomePath from = home_path(old_path);
    const HomePath to = home_path(new_path);
    return renameat(from.dirfd, from.rest, to.dirfd, to.rest);
}
