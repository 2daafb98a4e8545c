#include "hostlib/vm/rewrite.h"

#include "platform/file.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A longer old text is cut rather than covered before it is cut.
constexpr off_t cover_max = 4 * 1024 * 1024;

int write_at(int fd, std::string_view bytes, off_t offset)
{
    while (!bytes.empty()) {
        const ssize_t written = pwrite(fd, bytes.data(), bytes.size(), offset);
        if (written == 0)
            errno = ENOSPC;
        if (written == 0 || (written < 0 && errno != EINTR))
            return -1;
        if (written > 0) {
            bytes.remove_prefix(static_cast<size_t>(written));
            offset += written;
        }
    }
    return 0;
}

int cut(int fd, off_t length)
{
    const int saved = errno;
    int result;
    do
        result = ftruncate(fd, length);
    while (result != 0 && errno == EINTR);
    if (result == 0)
        errno = saved;
    return result;
}

// Takes the space for `length` bytes, first from the file system, then by line ends behind the old
// text, which mean nothing to its readers.
int reserve(int fd, off_t old_length, off_t length)
{
    if (platform_reserve(fd, static_cast<uint64_t>(length)) != 0 && errno != ENOTSUP)
        return -1;
    if (length <= old_length)
        return 0;
    if (write_at(fd, std::string(static_cast<size_t>(length - old_length), '\n'), old_length) == 0)
        return 0;
    cut(fd, old_length);
    return -1;
}

// The new text goes in with one write that also covers the rest of the old one by line ends: a
// process killed here leaves the old text or the new one. (The system can break off a write between
// two pages; only a text of more than one page could be caught by that.)
int replace_text(int fd, std::string_view text)
{
    struct stat old;
    const auto length = static_cast<off_t>(text.size());
    if (fstat(fd, &old) != 0 || reserve(fd, old.st_size, length) != 0)
        return -1;
    std::string bytes(text);
    bytes.resize(static_cast<size_t>(std::max(length, std::min(old.st_size, cover_max))), '\n');
    return write_at(fd, bytes, 0) == 0 && cut(fd, length) == 0 ? 0 : -1;
}

// A file made under another name until it is whole.
class NewFile
{
public:
    NewFile(int dirfd, const char *name)
        : m_dirfd(dirfd),
          m_name("." + std::string(name) + "." + std::to_string(std::random_device()()))
    {
    }
    ~NewFile()
    {
        if (m_fd) {
            const int saved = errno;
            unlinkat(m_dirfd, m_name.c_str(), 0);
            errno = saved;
        }
    }

    int fd()
    {
        m_fd.reset(openat(m_dirfd, m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        return m_fd.get();
    }
    int link_as(const char *name) { return linkat(m_dirfd, m_name.c_str(), m_dirfd, name, 0); }

private:
    int m_dirfd;
    std::string m_name;
    UniqueFd m_fd;
};

// EEXIST when somebody else was first.
Rewrite create(int dirfd, const char *name, std::string_view text)
{
    NewFile file(dirfd, name);
    const int fd = file.fd();
    if (fd < 0)
        return Rewrite::unopened;
    if (write_at(fd, text, 0) != 0)
        return Rewrite::unwritten;
    return file.link_as(name) == 0 ? Rewrite::done : Rewrite::unopened;
}

Rewrite rewrite_existing(int dirfd, const char *name, int flags, std::string_view text)
{
    const UniqueFd fd(
        platform_openat_locked(dirfd, name, flags | O_CLOEXEC, FileLock::exclusive, 0644));
    if (!fd)
        return Rewrite::unopened;
    return replace_text(fd.get(), text) == 0 ? Rewrite::done : Rewrite::unwritten;
}

} // namespace

FileOwner vm_open_locked(int dirfd, const char *name)
{
    UniqueFd fd(platform_openat_locked(dirfd, name, O_RDONLY | O_CLOEXEC, FileLock::shared, 0));
    FileOwner stream(fd ? fdopen(fd.get(), "rb") : nullptr);
    if (stream)
        fd.release();
    return stream;
}

Rewrite vm_rewrite(int dirfd, const char *name, std::string_view text)
{
    Rewrite result = rewrite_existing(dirfd, name, O_WRONLY, text);
    if (result != Rewrite::unopened || errno != ENOENT)
        return result;
    result = create(dirfd, name, text);
    // Somebody else was first, or there are no hard links here: then it is made in its place.
    if (result == Rewrite::unopened && (errno == EEXIST || errno == EPERM || errno == ENOTSUP))
        result = rewrite_existing(dirfd, name, O_WRONLY | O_CREAT, text);
    return result;
}
