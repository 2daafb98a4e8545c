#include "services/tarvctl/disks.h"

#include "hostlib/config/config.h"
#include "hostlib/vm/img.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t CHAIN_MAX = 64;
constexpr size_t BACKING_MAX = 1023;

uint64_t big_endian(const unsigned char *bytes, size_t count)
{
    uint64_t value = 0;
    for (size_t index = 0; index < count; ++index)
        value = value << 8 | bytes[index];
    return value;
}

// The first bytes of a qcow2 image; false for anything else.
bool read_qcow2_header(int fd, std::array<unsigned char, 32> &header)
{
    return pread(fd, header.data(), header.size(), 0) == static_cast<ssize_t>(header.size()) &&
           memcmp(header.data(), "QFI\xfb", 4) == 0;
}

std::filesystem::path real_folder(const std::filesystem::path &path)
{
    std::error_code error;
    const auto real = std::filesystem::weakly_canonical(path, error);
    return error ? path.lexically_normal() : real;
}

} // namespace

std::string image_directory()
{
    const char *path = config_get_path("img_lib_dir");
    if (!path)
        throw Failure(ExitStatus::failed, "setting img_lib_dir: not set");
    return path;
}

std::string image_path(const std::string &file)
{
    return file.starts_with('/') ? file : image_directory() + "/" + file;
}

bool is_library_image(const std::string &file)
{
    return !file.empty() && file.find('/') == std::string::npos && file != "." && file != "..";
}

bool is_own_image_name(const std::string &file)
{
    constexpr size_t id_length = 36;
    if (file.size() <= id_length || file[id_length] != '-')
        return false;
    for (size_t index = 0; index < id_length; ++index) {
        const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
        if (dash ? file[index] != '-' : !isxdigit(static_cast<unsigned char>(file[index])))
            return false;
    }
    return true;
}

std::string qcow2_backing(const std::string &path)
{
    std::array<unsigned char, 32> header;
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd || !read_qcow2_header(fd.get(), header))
        return "";
    const uint64_t offset = big_endian(&header[8], 8), size = big_endian(&header[16], 4);
    if (offset == 0 || size == 0 || size > BACKING_MAX)
        return "";
    std::string name(size, '\0');
    if (pread(fd.get(), name.data(), size, static_cast<off_t>(offset)) !=
        static_cast<ssize_t>(size))
        return "";
    return name;
}

bool is_qcow2(const std::string &path)
{
    std::array<unsigned char, 32> header;
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return fd && read_qcow2_header(fd.get(), header);
}

std::string image_format(const struct kv *disk, const std::string &path)
{
    const std::string said = kv_get_str(disk, "format", "");
    const bool named_raw =
        path.ends_with(".raw") || path.ends_with(".img") || path.ends_with(".iso");
    return !said.empty() ? said : !named_raw && is_qcow2(path) ? "qcow2" : "raw";
}

std::vector<std::string> config_images(const struct kv *record)
{
    std::vector<std::string> images;
    for (auto *disk = kv_first(kv_get(record, "hard_drives")); disk; disk = kv_next(disk))
        if (std::string file = kv_get_str(disk, "file", ""); !file.empty())
            images.push_back(std::move(file));
    if (std::string state = config_text(record, "state_file"); !state.empty())
        images.push_back(std::move(state));
    return images;
}

std::set<std::string> library_images(const struct kv *record)
{
    std::set<std::string> result;
    const std::filesystem::path library = real_folder(image_directory());
    for (const std::string &file : config_images(record)) {
        std::filesystem::path path = image_path(file);
        for (size_t depth = 0; depth < CHAIN_MAX; ++depth) {
            // However it is named: by an absolute path, or through a link to the folder.
            if (real_folder(path.parent_path()) == library)
                result.insert(path.filename());
            const std::string base = qcow2_backing(path);
            if (base.empty())
                break;
            path = (path.parent_path() / base).lexically_normal();
        }
    }
    return result;
}

std::vector<std::string> images_to_drop(const struct kv *record)
{
    const std::vector<std::string> named = config_images(record);
    std::vector<std::string> result;
    for (const std::string &file : library_images(record))
        if (is_own_image_name(file) || std::find(named.begin(), named.end(), file) != named.end())
            result.push_back(file);
    return result;
}

bool remove_unused_images(Library &library, const std::vector<std::string> &images)
{
    std::set<std::string> used;
    if (!library.each_config([&](const struct kv *record) { used.merge(library_images(record)); }))
        return false;
    for (const std::string &image : images)
        if (!used.contains(image))
            unlink(image_path(image).c_str());
    return true;
}

void purge_images(Library &library)
{
    std::set<std::string> used;
    if (!library.each_config([&](const struct kv *record) { used.merge(library_images(record)); }))
        return;
    auto in_use = [](const char *name, void *arg) {
        return static_cast<std::set<std::string> *>(arg)->contains(name);
    };
    img_purge(in_use, &used);
}
