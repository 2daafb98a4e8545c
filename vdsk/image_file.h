// The file that holds a disk image: opened read-only, read at offsets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

// Why an image can't be opened or read, on its way to the public functions.
struct DiskError
{
    int error; // errno
    std::string message;
};

class ImageFile
{
public:
    // Throws DiskError when the file can't be opened or is neither a file nor a block device.
    explicit ImageFile(std::string path);
    ~ImageFile();
    ImageFile(const ImageFile &) = delete;
    ImageFile &operator=(const ImageFile &) = delete;

    const std::string &path() const { return m_path; }
    uint64_t size() const { return m_size; }
    bool isSame(const ImageFile &other) const;

    // Fills a buffer from an offset. False when the file ends before; throws DiskError.
    bool readAll(void *buffer, size_t size, uint64_t offset) const;
    // A DiskError whose message names the file.
    [[noreturn]] void refuse(int error, const std::string &reason) const;

private:
    std::string m_path;
    int m_fd;
    uint64_t m_size = 0;
    dev_t m_device = 0;
    ino_t m_inode = 0;
};
