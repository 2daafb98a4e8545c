#include "hostlib/vm/addons.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/proc.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vm/vm.h"
#include "policy/owners.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char *VARIABLE = "tarv,addons-version";
constexpr const char *VOLUME = "Data";
constexpr const char *VERSION_FILE = "Library/Application Support/Quelda/Tarv/addons/version.txt";
constexpr size_t VERSION_MAX = 63;

// Five argument strings, standard error to a descriptor.
constexpr uint32_t FLAGS = PROC_STDERR | 5;
static_assert(FLAGS == 524293);

struct kv *version_node(std::string_view text)
{
    return kv_new_type(KV_STRING, std::string(text.substr(0, text.find(' '))).c_str());
}

// The first line of the version file in the guest's disk; nothing when the image tool failed
// (logged).
std::optional<std::string> read_version_file(const struct vm *vm, const char *image)
{
    std::optional<std::string> first;
    const auto keep_first = [&first](const char *line, size_t length) {
        if (first)
            return;
        std::string_view text(line, length);
        text = text.substr(0, text.find_last_not_of("\r\n") + 1);
        first.emplace(text.substr(0, VERSION_MAX));
    };
    const char *tool = config_get_path("tarv_image_maker_executable");
    const int status = tool ? proc_getln_b(tool, keep_first, FLAGS, "apfs", "cat", image, VOLUME,
                                           VERSION_FILE, log_fd)
                            : -1;
    if (status == 0)
        return first.value_or("");
    const char *id = vm_getid(vm);
    dprintf(log_fd, "vm: %s: read version: tool exit status %d\r\n", id ? id : "(null)",
            status > 0 ? status : errno);
    return std::nullopt;
}

// Image names are relative to the image library.
std::string image_path(const char *image)
{
    const char *library = image[0] == '/' ? nullptr : config_get_path("img_lib_dir");
    return library ? std::string(library) + "/" + image : image;
}

struct kv *no_drive(const struct vm *vm, const char *message)
{
    const char *id = vm_getid(vm);
    dprintf(log_fd, "vm: %s: %s\r\n", id ? id : "(null)", message);
    return nullptr;
}

} // namespace

struct kv *vm_read_addons_version(struct vm *vm)
{
    if (!vm) {
        errno = ENOENT;
        return nullptr;
    }
    if (const KvOwner value{vm_read_nvram(vm, VARIABLE)})
        return version_node(kv_str(value.get(), ""));
    const KvOwner record(vm_read_config(vm));
    if (!record)
        return no_drive(vm, "failed to read config");
    const char *image = kv_get_str(record.get(), "hard_drives[0].file", nullptr);
    if (!image) {
        no_drive(vm, "no hard drives configured");
        errno = ENODEV;
        return nullptr;
    }
    if (const std::optional<std::string> version = read_version_file(vm, image))
        return version_node(*version);
    const KvOwner sector(pyver_read(image_path(image).c_str()));
    return kv_detach(sector.get(), "version");
}
