#include "hostlib/vm/rewrite.h"

#include "platform/file.h"
#include "platform/new_file.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// A longer old text is cut rather than covered before it is cut.
constexpr off_t COVER_MAX = 4 * 1024 * 1024;

int write_at(int fd, std::string_view bytes, off_t offset)
{
    return lseek(fd, offset, SEEK_SET) < 0 ? -1 : platform_write_all(fd, bytes);
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

// Opens a file of a record and waits for its lock, but never for its opening: a fifo that stands in
// the place of a record would hold up everybody who lists the library. ENOTSUP for what is no file.
UniqueFd open_record(int dirfd, const char *name, int flags, FileLock lock)
{
    UniqueFd fd(openat(dirfd, name, flags | O_NONBLOCK | O_CLOEXEC, 0644));
    struct stat found;
    if (!fd || fstat(fd.get(), &found) != 0)
        return {};
    if (!S_ISREG(found.st_mode)) {
        errno = S_ISDIR(found.st_mode) ? EISDIR : ENOTSUP;
        return {};
    }
    return platform_lock(fd.get(), lock) == 0 ? std::move(fd) : UniqueFd();
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
    bytes.resize(static_cast<size_t>(std::max(length, std::min(old.st_size, COVER_MAX))), '\n');
    return write_at(fd, bytes, 0) == 0 && cut(fd, length) == 0 ? 0 : -1;
}

// EEXIST when somebody else was first. The file gets its name whole, since a reader that finds one
// takes its lock and reads: an empty record would be no VM.
Rewrite create(int dirfd, const char *name, std::string_view text)
{
    NewFile file;
    if (file.make(dirfd, name, 0644, FileMakers::many) < 0)
        return Rewrite::unopened;
    if (write_at(file.fd(), text, 0) != 0)
        return Rewrite::unwritten;
    if (file.publish() == 0)
        return Rewrite::done;
    return file.failed() == FileStep::name ? Rewrite::unopened : Rewrite::unsynced;
}

Rewrite rewrite_existing(int dirfd, const char *name, int flags, std::string_view text)
{
    const UniqueFd fd = open_record(dirfd, name, flags, FileLock::exclusive);
    if (!fd)
        return Rewrite::unopened;
    if (replace_text(fd.get(), text) != 0)
        return Rewrite::unwritten;
    // Under the lock still: who reads the new text may act on it, and a loss of power must not take
    // it back then. A saved state whose name is gone would be deleted with the next start.
    return fsync(fd.get()) == 0 ? Rewrite::done : Rewrite::unsynced;
}

} // namespace

FileOwner vm_open_locked(int dirfd, const char *name)
{
    UniqueFd fd = open_record(dirfd, name, O_RDONLY, FileLock::shared);
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
