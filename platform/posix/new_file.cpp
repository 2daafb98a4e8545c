#include "platform/new_file.h"

#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>

namespace {

// Where the last component of a path begins.
size_t name_start(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? 0 : slash + 1;
}

int sync_file(int fd)
{
    int result;
    do
        result = fsync(fd);
    while (result != 0 && errno == EINTR);
    return result;
}

// The temporary name stands in the same directory, since a rename can't leave its file system, and
// begins with a dot, since readers of directories pass over such names.
std::string temporary_name(const std::string &name, FileMakers makers)
{
    const size_t start = name_start(name);
    const std::string suffix =
        makers == FileMakers::one ? "new" : std::to_string(std::random_device()());
    return name.substr(0, start) + "." + name.substr(start) + "." + suffix;
}

} // namespace

int platform_write_all(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written == 0)
            errno = ENOSPC;
        if (written == 0 || (written < 0 && errno != EINTR))
            return -1;
        if (written > 0)
            bytes.remove_prefix(static_cast<size_t>(written));
    }
    return 0;
}

int platform_sync_directory_of(int dirfd, const char *name)
{
    const std::string path(name, name_start(name));
    // Opened anew, since a descriptor that only stands for a path can't be synced.
    const UniqueFd fd(
        openat(dirfd, path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd)
        return -1;
    // EINVAL: this file system has nothing to sync in a directory.
    return sync_file(fd.get()) == 0 || errno == EINVAL ? 0 : -1;
}

const char *file_step_text(FileStep step)
{
    switch (step) {
    case FileStep::none:
        break;
    case FileStep::make:
        return "can't be made";
    case FileStep::write:
        return "can't be written";
    case FileStep::sync:
        return "can't be seen onto the disk";
    case FileStep::name:
        return "can't get its name";
    case FileStep::sync_directory:
        return "its directory can't be seen onto the disk";
    }
    return "";
}

NewFile::~NewFile()
{
    if (m_temporary.empty())
        return;
    const int saved = errno;
    unlinkat(m_dirfd, m_temporary.c_str(), 0);
    errno = saved;
}

int NewFile::fail(FileStep step)
{
    m_failed = step;
    return -1;
}

int NewFile::make(int dirfd, const char *name, mode_t mode, FileMakers makers)
{
    m_dirfd = dirfd;
    m_name = name;
    const std::string temporary = temporary_name(m_name, makers);
    // Nobody else's file is written to: a link is not followed, and one maker begins anew.
    if (makers == FileMakers::one && unlinkat(dirfd, temporary.c_str(), 0) != 0 && errno != ENOENT)
        return fail(FileStep::make);
    m_fd.reset(openat(dirfd, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!m_fd)
        return fail(FileStep::make);
    m_temporary = temporary;
    struct stat old;
    if (fstatat(dirfd, name, &old, 0) == 0 && fchmod(m_fd.get(), old.st_mode & 07777) != 0)
        return fail(FileStep::make);
    return m_fd.get();
}

int NewFile::replace()
{
    if (sync_file(m_fd.get()) != 0)
        return fail(FileStep::sync);
    if (renameat(m_dirfd, m_temporary.c_str(), m_dirfd, m_name.c_str()) != 0)
        return fail(FileStep::name);
    m_temporary.clear();
    return platform_sync_directory_of(m_dirfd, m_name.c_str()) == 0
               ? 0
               : fail(FileStep::sync_directory);
}

int NewFile::publish()
{
    if (sync_file(m_fd.get()) != 0)
        return fail(FileStep::sync);
    if (linkat(m_dirfd, m_temporary.c_str(), m_dirfd, m_name.c_str(), 0) != 0)
        return fail(FileStep::name);
    // The second name goes first, so that one sync sees both changes onto the disk.
    unlinkat(m_dirfd, m_temporary.c_str(), 0);
    m_temporary.clear();
    return platform_sync_directory_of(m_dirfd, m_name.c_str()) == 0
               ? 0
               : fail(FileStep::sync_directory);
}

int platform_replace_file(int dirfd, const char *name, std::string_view text, mode_t mode,
                          FileMakers makers, FileStep *failed)
{
    NewFile file;
    FileStep step = FileStep::none;
    int result = file.make(dirfd, name, mode, makers) < 0 ? -1 : 0;
    if (result == 0 && (result = platform_write_all(file.fd(), text)) != 0)
        step = FileStep::write;
    else if (result == 0)
        result = file.replace();
    if (failed != nullptr)
        *failed = step != FileStep::none ? step : file.failed();
    return result;
}
