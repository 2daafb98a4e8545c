// Reads the tables of a qcow2 image and asks for the kind of clusters all over the disk; compares
// with a reader that looks each entry up in the bytes, and remembers nothing.
#include "vdsk/qcow_map.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

struct Image
{
    const uint8_t *data;
    size_t size;

    // A number of the file, or none where it lies outside.
    std::optional<uint64_t> at(uint64_t offset, size_t bytes) const
    {
        if (offset > size || bytes > size - offset)
            return {};
        uint64_t value = 0;
        for (size_t i = 0; i < bytes; ++i)
            value = value * 256 + data[offset + i];
        return value;
    }
};

constexpr uint64_t PLACE = 0x00fffffffffffe00;

// Version, cluster bits and first level are of an image that the map has taken, so they are there.
std::optional<ClusterKind> plain_kind(const Image &image, uint64_t offset)
{
    const uint64_t version = *image.at(4, 4), bits = *image.at(20, 4), first = *image.at(40, 8);
    const uint64_t cluster = offset >> bits, entries = (uint64_t{1} << bits) / 8;
    const uint64_t table = *image.at(first + cluster / entries * 8, 8) & PLACE;
    if (!table)
        return ClusterKind::absent;
    if (!image.at(table + entries * 8 - 8, 8))
        return {}; // a part of the table is missing
    const uint64_t entry = *image.at(table + cluster % entries * 8, 8);
    if (entry >> 62 & 1)
        return ClusterKind::data;
    if (version == 3 && entry % 2 == 1)
        return ClusterKind::zero;
    return entry & PLACE ? ClusterKind::data : ClusterKind::absent;
}

void compare(QcowMap &map, const Image &image, uint64_t offset)
{
    std::optional<ClusterKind> kind;
    try {
        kind = map.kindAt(offset);
    } catch (const DiskError &) {
    }
    if (kind != plain_kind(image, offset))
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *const stream = tmpfile();
    if (!stream || fwrite(data, 1, size, stream) != size || fflush(stream) != 0)
        abort();
    try {
        const ImageFile file("/dev/fd/" + std::to_string(fileno(stream)));
        QcowMap map(file);
        const Image image{data, size};
        for (uint64_t part = 0; part < 64 && map.size(); ++part)
            compare(map, image, map.size() / 64 * part + (map.size() - 1) % 64);
        if (map.size())
            compare(map, image, map.size() - 1);
    } catch (const DiskError &) {
    }
    fclose(stream);
    return 0;
}
