#include "vdsk/format.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

using namespace std::string_view_literals;

namespace {
struct Magic
{
    size_t offset;
    std::string_view bytes;
    const char *format;
};

constexpr Magic HEAD_MAGICS[] = {
    {0, "QFI\xfb\0\0\0\1"sv, "qcow (version 1)"},
    {0, "KDMV"sv, "VMDK"},
    {0, "COWD"sv, "VMDK"},
    {0, "# Disk DescriptorFile"sv, "VMDK"},
    {0x40, "\x7f\x10\xda\xbe"sv, "VDI"},
    {0, "vhdxfile"sv, "VHDX"},
    {0, "conectix"sv, "VHD"},
    {0, "QED\0"sv, "QED"},
    {0, "LUKS\xba\xbe"sv, "LUKS"},
    {0, "WithoutFreeSpace"sv, "Parallels"},
    {0, "WithouFreSpacExt"sv, "Parallels"},
    {0, "Bochs Virtual HD Image"sv, "Bochs"},
    {0, "EVF\t\r\n\xff\0"sv, "EWF"},
    {0, "\x1f\x8b\x08"sv, "gzip"},
    {0,
     "\xfd"
     "7zXZ\0"sv,
     "xz"},
    {0, "\x28\xb5\x2f\xfd"sv, "zstd"},
};
// Formats that are known by the last 512 bytes.
constexpr Magic TAIL_MAGICS[] = {
    {0, "conectix"sv, "VHD"},
    {0, "koly"sv, "DMG"},
};

constexpr size_t BLOCK = 512;

template <size_t N>
void refuse_any(const ImageFile &file, const Magic (&magics)[N], std::string_view bytes)
{
    for (const Magic &magic : magics)
        if (bytes.substr(magic.offset).starts_with(magic.bytes))
            file.refuse(EINVAL, "a " + std::string(magic.format) +
                                    " image; only raw and qcow2 can be read");
}
} // namespace

DiskFormat disk_format(const ImageFile &file)
{
    if (file.size() == 0)
        file.refuse(EINVAL, "an empty file is no disk image");
    std::array<char, BLOCK> bytes{};
    const size_t size = static_cast<size_t>(std::min<uint64_t>(file.size(), BLOCK));
    if (!file.readAll(bytes.data(), size, 0))
        file.refuse(EIO, "the file became shorter");
    const std::string_view head(bytes.data(), bytes.size());
    refuse_any(file, HEAD_MAGICS, head);
    if (head.starts_with("QFI\xfb"sv))
        return DiskFormat::qcow2;
    if (file.size() > BLOCK && file.readAll(bytes.data(), BLOCK, file.size() - BLOCK))
        refuse_any(file, TAIL_MAGICS, head);
    return DiskFormat::raw;
}
