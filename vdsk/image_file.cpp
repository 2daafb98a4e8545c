#include "vdsk/image_file.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// A fifo in the image's place must not hang the caller: O_NONBLOCK.
constexpr int OPEN_FLAGS = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
} // namespace

ImageFile::ImageFile(std::string path)
    : m_path(std::move(path)), m_fd(open(m_path.c_str(), OPEN_FLAGS))
{
    if (m_fd < 0)
        refuse(errno, strerror(errno));
    try {
        struct stat status
        {
        };
        if (fstat(m_fd, &status) != 0)
            refuse(errno, strerror(errno));
        if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))
            refuse(EINVAL, "not a file or block device");
        const off_t end = lseek(m_fd, 0, SEEK_END);
        if (end < 0)
            refuse(errno, strerror(errno));
        m_size = static_cast<uint64_t>(end);
        m_device = status.st_dev;
        m_inode = status.st_ino;
    } catch (...) {
        close(m_fd);
        throw;
    }
}

ImageFile::~ImageFile()
{
    close(m_fd);
}

bool ImageFile::isSame(const ImageFile &other) const
{
    return m_device == other.m_device && m_inode == other.m_inode;
}

bool ImageFile::readAll(void *buffer, size_t size, uint64_t offset) const
{
    char *at = static_cast<char *>(buffer);
    while (size > 0) {
        const ssize_t count = pread(m_fd, at, size, static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            refuse(errno, strerror(errno));
        if (count == 0)
            return false;
        at += count;
        size -= static_cast<size_t>(count);
        offset += static_cast<uint64_t>(count);
    }
    return true;
}

void ImageFile::refuse(int error, const std::string &reason) const
{
    throw DiskError{error, m_path + ": " + reason};
}
