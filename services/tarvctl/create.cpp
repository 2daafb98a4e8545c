#include "hostlib/config/config.h"
#include "services/bounds.h"
#include "services/engine/host.h"
#include "services/engine/machine_types.h"
#include "services/notify/notify.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/image_probe.h"
#include "services/tarvctl/installers.h"
#include "services/tarvctl/progress.h"
#include "services/tarvctl/qemu_img.h"
#include "services/tarvctl/sizes.h"
#include "services/tarvctl/stage.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// All that is known of a VM before anything is made.
struct Plan
{
    std::string name;
    uint64_t ram = 0, disk = 0, cpus = 0;
    std::string machine; // type; "" where QEMU can't be asked: then the first start settles it
    std::string firmware, disk_controller, network_mode, network_controller, user;
    ImageInfo image;
};

// A value and, for messages, where it comes from.
struct Choice
{
    std::string source, value;
};

// What the command line says, else the setting, else the default.
Choice chosen(const char *option, const std::string &given, const char *key, const char *missing)
{
    if (!given.empty())
        return {option, given};
    const char *setting = config_find(key) ? config_get_str(key) : nullptr;
    return {std::string("setting ") + key, setting ? setting : missing};
}

std::string from_environment(const char *variable, const char *missing,
                             std::initializer_list<std::string_view> choices)
{
    const char *value = getenv(variable);
    if (!value || !*value)
        return missing;
    if (std::find(choices.begin(), choices.end(), value) != choices.end())
        return value;
    std::string known;
    for (std::string_view choice : choices)
        known += (known.empty() ? "" : ", ") + std::string(choice);
    throw Failure(ExitStatus::input,
                  std::string(variable) + ": \"" + value + "\" is none of " + known);
}

// UEFI only where it is asked for, or where the image boots with nothing else.
std::string choose_firmware(const std::string &given, const ImageInfo &image)
{
    const bool needs_uefi = image.boots_uefi && !image.boots_bios;
    const auto [source, firmware] =
        chosen("--firmware", given, "default_firmware", needs_uefi ? "uefi" : "bios");
    if (firmware != "bios" && firmware != "uefi")
        throw Failure(ExitStatus::input,
                      source + ": \"" + firmware + "\" is neither bios nor uefi");
    const char *setting = config_find("uefi_code") ? config_get_path("uefi_code") : nullptr;
    const char *code = setting ? setting : "/usr/share/OVMF/OVMF_CODE_4M.fd";
    if (firmware == "uefi" && access(code, R_OK) != 0)
        throw system_failure(std::string("UEFI firmware ") + code, errno);
    return firmware;
}

void check_disk_size(const Plan &plan, const std::string &source)
{
    if (plan.image.kind == ImageKind::disk && plan.disk < plan.image.virtual_size)
        throw Failure(ExitStatus::input, source + ": " + bytes_text(plan.disk) +
                                             " is less than the image's own " +
                                             bytes_text(plan.image.virtual_size));
}

// A new disk takes next to nothing; a copied one as much as the image does.
void check_space(const Plan &plan)
{
    constexpr uint64_t spare = MIB;
    const std::string directory = image_directory();
    struct statvfs status;
    if (statvfs(directory.c_str(), &status) != 0)
        throw system_failure(directory, errno);
    const uint64_t room = uint64_t(status.f_bavail) * status.f_frsize;
    const uint64_t wanted =
        spare + (plan.image.kind == ImageKind::disk ? plan.image.stored_size : 0);
    if (room < wanted)
        throw Failure(ExitStatus::space, directory + ": no space: " + bytes_text(room) + " free, " +
                                             bytes_text(wanted) + " needed");
}

Plan make_plan(const Arguments &arguments)
{
    Plan plan;
    plan.name = arguments.name;
    check_name(plan.name);
    const Choice cpus = chosen("--cpu-count", arguments.cpu_count, "default_nvcpu", "2");
    const Choice ram = chosen("--ram-size", arguments.ram_size, "default_ram", "2G");
    const Choice disk = chosen("--disk-size", arguments.disk_size, "default_disk", "64G");
    plan.cpus = parse_number(cpus.source, cpus.value, 1, VM_CPU_MAX);
    plan.ram = parse_bytes(ram.source, ram.value, VM_RAM_MIN, VM_RAM_MAX);
    plan.disk = parse_bytes(disk.source, disk.value, DISK_LEAST, DISK_MOST);
    plan.disk_controller = from_environment("TARV_DISK_CONTROLLER", "ablk", {"ablk", "virtio-blk"});
    plan.network_mode = from_environment("TARV_NETWORK_MODE", "shared",
                                         {"host", "shared", "bridge", "disconnected"});
    plan.network_controller =
        from_environment("TARV_NETWORK_CONTROLLER", "virtio-net", {"anet", "virtio-net"});
    if (const char *user = getenv("TARV_DEFAULT_USER"))
        plan.user = user;
    const std::string source = arguments.source == "latest" ? latest_installer() : arguments.source;
    plan.image = probe_image(image_source_path(source));
    plan.firmware = choose_firmware(arguments.firmware, plan.image);
    if (std::vector<std::string> types; !machine_types_of(qemu_program(), &types))
        plan.machine = types.front();
    if (plan.firmware == "uefi" && plan.ram < VM_RAM_UEFI_MIN)
        throw Failure(ExitStatus::input, ram.source + ": " + bytes_text(plan.ram) +
                                             " is less than the " + bytes_text(VM_RAM_UEFI_MIN) +
                                             " that UEFI needs");
    check_disk_size(plan, disk.source);
    check_space(plan);
    return plan;
}

struct kv *set_map(struct kv *parent, const char *key)
{
    struct kv *map = kv_new_type(KV_MAP);
    kv_set(parent, key, map);
    return map;
}

// The one item of a new list.
struct kv *set_list_item(struct kv *parent, const char *key)
{
    struct kv *list = kv_new_type(KV_LIST);
    kv_set(parent, key, list);
    return set_map(list, nullptr);
}

KvOwner make_config(const Plan &plan, const Stage &stage, const std::string &disk)
{
    KvOwner record(kv_new_type(KV_MAP));
    auto text = [](struct kv *map, const char *key, const std::string &value) {
        kv_set_type(map, key, value.c_str(), KV_STRING);
    };
    text(record.get(), "name", plan.name);
    text(record.get(), "uuid", stage.id());
    kv_set_type(set_map(record.get(), "cpu"), "count", plan.cpus, KV_INT);
    kv_set_type(set_map(record.get(), "ram"), "size", plan.ram, KV_INT);
    text(record.get(), "firmware", plan.firmware);
    if (!plan.machine.empty())
        text(record.get(), "machine", plan.machine);
    struct kv *drive = set_list_item(record.get(), "hard_drives");
    text(drive, "file", disk);
    text(drive, "controller", plan.disk_controller);
    if (plan.image.kind == ImageKind::disc)
        text(record.get(), "cdrom", plan.image.path);
    struct kv *network = set_list_item(record.get(), "network");
    text(network, "mode", plan.network_mode);
    text(network, "controller", plan.network_controller);
    text(network, "mac", random_mac());
    struct kv *display = set_list_item(record.get(), "displays");
    kv_set_type(display, "width", 1280, KV_INT);
    kv_set_type(display, "height", 800, KV_INT);
    if (!plan.user.empty())
        text(record.get(), "default_user", plan.user);
    return record;
}

void make_disk(const Plan &plan, const std::string &path)
{
    Progress progress;
    const std::string size = std::to_string(plan.disk);
    progress.begin_step(0.95);
    if (plan.image.kind == ImageKind::disc) {
        run_qemu_img({"create", "-q", "-f", "qcow2", path, size});
    } else {
        run_qemu_img(
            {"convert", "-p", "-f", plan.image.format, "-O", "qcow2", plan.image.path, path},
            [&](double part) { progress.report(part); });
        if (plan.disk > plan.image.virtual_size)
            run_qemu_img({"resize", "-q", "-f", "qcow2", path, size});
    }
    progress.report(1);
    progress.begin_step(1);
}

Answer create(const Arguments &arguments)
{
    Library library;
    library.check_name_free(arguments.name);
    const Plan plan = make_plan(arguments);
    sweep_leftovers(library);
    Stage stage(library);
    make_disk(plan, stage.add_image("disk0.qcow2"));
    check_cancelled();
    stage.publish(make_config(plan, stage, stage.image_name("disk0.qcow2")).get());
    fprintf(stderr, "100%%\n");
    notify_post("create", stage.id().c_str());
    return {.body = {{"id", stage.id()}, {"name", plan.name}},
            .text = "Created " + plan.name + " (" + stage.id() + ")\n"};
}

} // namespace

Answer run_create(const Arguments &arguments)
{
    if (arguments.list)
        return list_installers();
    if (arguments.name.empty() || arguments.source.empty())
        throw Failure(ExitStatus::usage, std::string("create: ") +
                                             (arguments.name.empty() ? "NAME" : "IMAGE") +
                                             " is required");
    return create(arguments);
}
