#include "vdsk/vdsk.h"

#include "vdsk/image.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <string_view>

struct vdsk
{
    std::unique_ptr<Image> image;
    uint32_t sector_size;
};

namespace {
thread_local std::string last_error;

template <typename Result, typename Work>
Result guard(Result failed, Work work) noexcept
{
    try {
        return work();
    } catch (DiskError &error) {
        last_error.swap(error.message);
        errno = error.error;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    return failed;
}

bool holds(Image &image, uint64_t offset, std::string_view bytes)
{
    std::array<char, 8> found{};
    if (image.size() < offset + bytes.size())
        return false;
    image.read(found.data(), bytes.size(), offset);
    return std::string_view(found.data(), bytes.size()) == bytes;
}

// No format says how large the guest's sectors are, but a partitioned disk does: its GPT header
// lies in the second sector.
uint32_t sector_size(Image &image)
{
    constexpr std::string_view gpt = "EFI PART";
    const bool large = !holds(image, 512, gpt) && holds(image, 4096, gpt);
    return large && holds(image, 510, "\x55\xaa") ? 4096 : 512;
}
} // namespace

struct vdsk *vdsk_open(const char *path)
{
    last_error.clear();
    return guard<vdsk *>(nullptr, [&] {
        if (!path)
            throw DiskError{EINVAL, "no path"};
        auto disk = std::make_unique<vdsk>();
        disk->image = open_image(path);
        disk->sector_size = sector_size(*disk->image);
        return disk.release();
    });
}

uint32_t vdsk_sectorsize(const struct vdsk *disk)
{
    return disk->sector_size;
}

uint64_t vdsk_sectors(const struct vdsk *disk)
{
    const uint64_t size = disk->image->size();
    if (size < disk->sector_size)
        return 0;
    return size / disk->sector_size + (size % disk->sector_size != 0);
}

ssize_t vdsk_read(struct vdsk *disk, void *buffer, uint64_t first, size_t count)
{
    const uint64_t sectors = vdsk_sectors(disk);
    if (first >= sectors || count == 0)
        return 0;
    const uint64_t cap = std::numeric_limits<ssize_t>::max() / disk->sector_size;
    count = static_cast<size_t>(std::min<uint64_t>({count, sectors - first, cap}));
    const uint64_t offset = first * disk->sector_size;
    const size_t asked = count * disk->sector_size;
    const size_t present =
        static_cast<size_t>(std::min<uint64_t>(asked, disk->image->size() - offset));
    return guard<ssize_t>(-1, [&] {
        disk->image->read(buffer, present, offset);
        memset(static_cast<char *>(buffer) + present, 0, asked - present);
        return static_cast<ssize_t>(count);
    });
}

void vdsk_close(struct vdsk *disk)
{
    delete disk;
}

const char *vdsk_error()
{
    return last_error.c_str();
}
