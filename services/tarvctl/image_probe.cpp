#include "services/tarvctl/image_probe.h"

#include "hostlib/utils/utils.h"
#include "platform/unique_fd.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/disks.h"
#include "vdsk/vdsk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t BLOCK = 2048; // of a disc

[[noreturn]] void refuse(const std::string &path, const std::string &why)
{
    throw Failure(ExitStatus::input, path + ": " + why);
}

struct VdskClose
{
    void operator()(struct vdsk *disk) const { vdsk_close(disk); }
};

bool read_block(int fd, uint64_t number, std::array<unsigned char, BLOCK> &bytes)
{
    return pread(fd, bytes.data(), BLOCK, static_cast<off_t>(number * BLOCK)) ==
           static_cast<ssize_t>(BLOCK);
}

uint32_t little_endian(const unsigned char *bytes)
{
    return bytes[0] | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

// The boot catalog: 32-byte entries; the validation entry and each section header name a platform,
// 0xEF for UEFI and 0 for an x86 BIOS.
void read_boot_catalog(int fd, ImageInfo &info)
{
    std::array<unsigned char, BLOCK> record, catalog;
    if (!read_block(fd, 17, record) || memcmp(&record[1], "CD001", 5) != 0 ||
        memcmp(&record[7], "EL TORITO", 9) != 0 ||
        !read_block(fd, little_endian(&record[0x47]), catalog) || catalog[0] != 1)
        return;
    auto note = [&](unsigned char platform) {
        info.boots_uefi = info.boots_uefi || platform == 0xef;
        info.boots_bios = info.boots_bios || platform == 0;
    };
    note(catalog[1]);
    for (size_t at = 64; at + 32 <= BLOCK && (catalog[at] == 0x90 || catalog[at] == 0x91);) {
        note(catalog[at + 1]);
        at += 32 + 32 * static_cast<size_t>(catalog[at + 2] | catalog[at + 3] << 8);
    }
}

bool read_disc(int fd, ImageInfo &info)
{
    std::array<unsigned char, BLOCK> volume;
    if (!read_block(fd, 16, volume) || memcmp(&volume[1], "CD001", 5) != 0)
        return false;
    info.kind = ImageKind::disc;
    info.label.assign(reinterpret_cast<char *>(&volume[40]), 32);
    info.label.erase(info.label.find_last_not_of(std::string_view(" \0", 2)) + 1);
    read_boot_catalog(fd, info);
    return true;
}

// What of the first sectors makes a disk boot.
void read_boot_sectors(struct vdsk *disk, ImageInfo &info)
{
    const size_t size = vdsk_sectorsize(disk);
    std::vector<unsigned char> sectors(2 * size);
    if (vdsk_read(disk, sectors.data(), 0, 2) != 2)
        return;
    constexpr size_t code_size = 440;
    const bool has_code = std::any_of(sectors.begin(), sectors.begin() + code_size,
                                      [](unsigned char byte) { return byte != 0; });
    info.boots_bios = has_code && sectors[510] == 0x55 && sectors[511] == 0xaa;
    info.boots_uefi = memcmp(&sectors[size], "EFI PART", 8) == 0;
}

// Formats that only the image tool reads, by how their files begin; and packed files, which are
// often taken for what is in them.
constexpr struct
{
    size_t offset;
    std::string_view mark;
    const char *name;
} FOREIGN_FORMATS[] = {
    {0, "KDMV", "a vmdk image"},
    {0, "# Disk DescriptorFile", "a vmdk image"},
    {0, "vhdxfile", "a vhdx image"},
    {0, "conectix", "a vpc image"},
    {0x40, "\x7f\x10\xda\xbe", "a vdi image"},
    {0, std::string_view("QED\0", 4), "a qed image"},
    {0, std::string_view("QFI\xfb\0\0\0\1", 8), "a qcow image of version 1"},
    {0, "LUKS\xba\xbe", "encrypted"},
    {0, "\x1f\x8b", "packed by gzip"},
    {0, "BZh", "packed by bzip2"},
    {0, std::string_view("\xfd\x37zXZ\0", 6), "packed by xz"},
    {0, "\x28\xb5\x2f\xfd", "packed by zstd"},
    {0, "PK\3\4", "packed by zip"},
};

void refuse_foreign(int fd, const std::string &path)
{
    std::array<char, 128> start = {};
    const ssize_t got = pread(fd, start.data(), start.size(), 0);
    const std::string_view bytes(start.data(), got > 0 ? static_cast<size_t>(got) : 0);
    for (const auto &[offset, mark, name] : FOREIGN_FORMATS) {
        if (bytes.size() < offset || !bytes.substr(offset).starts_with(mark))
            continue;
        const std::string_view kind = name;
        refuse(path, "is " + std::string(kind) +
                         (kind.starts_with("a ") ? "; qemu-img convert -O qcow2 makes one that "
                                                   "can be used"
                          : kind == "encrypted"  ? ""
                                                 : "; unpack it first"));
    }
}

// Incompatible features of a qcow2 image, bits of the last byte of their field.
constexpr unsigned char FEATURE_CORRUPT = 2, FEATURE_EXTERNAL_DATA = 4;

// Whether an image may be read for the sake of one that stands on it: a foreign image could name
// any file of this host, whose content would end up on the guest's disk.
bool is_neighbour(const std::string &base, const std::string &image)
{
    std::error_code error;
    const auto folder = [&](const std::string &path) {
        return std::filesystem::canonical(path, error).parent_path();
    };
    const auto place = folder(base);
    return place == folder(image) || place == std::filesystem::canonical(image_directory(), error);
}

// The header of an image and of those below it, whose size on the host is added.
void check_qcow2(const std::string &path, int depth, ImageInfo &info)
{
    constexpr int depth_max = 64;
    std::array<unsigned char, 80> header = {};
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd)
        refuse(path, strerror(errno));
    if (pread(fd.get(), header.data(), header.size(), 0) < 72)
        refuse(path, "is damaged");
    if (header[35] != 0) // the encryption method
        refuse(path, "is encrypted");
    if (header[7] >= 3 && (header[79] & FEATURE_EXTERNAL_DATA))
        refuse(path, "keeps its data in another file");
    if (header[7] >= 3 && (header[79] & FEATURE_CORRUPT))
        refuse(path, "is marked as damaged; qemu-img check -r all may mend it");
    const std::string name = qcow2_backing(path);
    if (name.empty())
        return;
    const std::string base =
        (std::filesystem::path(path).parent_path() / name).lexically_normal().string();
    if (depth >= depth_max || name.find(':') != name.npos || access(base.c_str(), R_OK) != 0)
        refuse(path, "needs another image, " + name + ", which can't be read");
    if (!is_neighbour(base, path))
        refuse(path, "needs another image, " + base +
                         ", which is in another folder; qemu-img convert -O qcow2 makes one that "
                         "stands alone");
    struct stat status;
    if (stat(base.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        refuse(path, "needs another image, " + base + ", which is not a file");
    info.stored_size += static_cast<uint64_t>(status.st_blocks) * 512;
    if (is_qcow2(base))
        check_qcow2(base, depth + 1, info);
}

void read_disk(ImageInfo &info)
{
    info.kind = ImageKind::disk;
    info.format = is_qcow2(info.path) ? "qcow2" : "raw";
    if (info.format == "qcow2")
        check_qcow2(info.path, 0, info);
    std::unique_ptr<struct vdsk, VdskClose> disk(vdsk_open(info.path.c_str()));
    if (!disk)
        refuse(info.path, std::string("is damaged: ") + vdsk_error());
    info.virtual_size = vdsk_sectors(disk.get()) * vdsk_sectorsize(disk.get());
    if (info.virtual_size == 0)
        refuse(info.path, "is empty");
    read_boot_sectors(disk.get(), info);
}

std::string decoded(const std::string &url, std::string_view text)
{
    std::string result;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            result += text[at];
            continue;
        }
        const std::string digits(text.substr(at + 1, 2));
        char *end = nullptr;
        const long value = strtol(digits.c_str(), &end, 16);
        if (digits.size() != 2 || *end || value <= 0)
            throw Failure(ExitStatus::input, "IMAGE: " + url + ": not a URL");
        result += static_cast<char>(value);
        at += 2;
    }
    return result;
}

bool has_extension(const std::string &path, std::string_view extension)
{
    return path.size() > extension.size() &&
           strcasecmp(path.c_str() + path.size() - extension.size(),
                      std::string(extension).c_str()) == 0;
}

} // namespace

std::string image_source_path(const std::string &source)
{
    std::string path = source;
    const size_t scheme = source.find("://");
    if (strncasecmp(source.c_str(), "file:", 5) == 0) {
        std::string_view rest = std::string_view(source).substr(5);
        if (rest.starts_with("//")) {
            const size_t slash = rest.find('/', 2);
            const std::string_view host = rest.substr(2, slash == rest.npos ? slash : slash - 2);
            if (slash == rest.npos || !(host.empty() || host == "localhost"))
                throw Failure(ExitStatus::input, "IMAGE: " + source + ": not a file of this host");
            rest = rest.substr(slash);
        }
        path = decoded(source, rest.substr(0, rest.find_first_of("?#")));
    } else if (scheme != std::string::npos && source.find('/') == scheme + 1) {
        throw Failure(ExitStatus::input,
                      "IMAGE: " + source + ": only files of this host can be used; fetch it first");
    }
    if (path.starts_with("~/"))
        path = home_dir() + path.substr(1);
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(path, error).lexically_normal();
    return error || path.empty() ? path : absolute;
}

ImageInfo probe_image(const std::string &path)
{
    ImageInfo info;
    info.path = path;
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0)
        refuse(path, strerror(errno));
    if (!S_ISREG(status.st_mode))
        refuse(path, "is not a file");
    if (status.st_size == 0)
        refuse(path, "is empty");
    info.virtual_size = static_cast<uint64_t>(status.st_size);
    info.stored_size = static_cast<uint64_t>(status.st_blocks) * 512;
    info.modified = status.st_mtime;
    if (read_disc(fd.get(), info))
        return info;
    refuse_foreign(fd.get(), path);
    if (has_extension(path, ".iso"))
        refuse(path, "is not a disc image");
    if (!is_qcow2(path) && !has_extension(path, ".img") && !has_extension(path, ".raw"))
        refuse(path, "is neither an iso, an img nor a qcow2 image");
    read_disk(info);
    return info;
}
