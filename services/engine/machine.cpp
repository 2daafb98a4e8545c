#include "services/engine/machine.h"

#include "policy/kv.h"
#include "services/bounds.h"
#include "services/engine/machine_types.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <utility>

namespace {

template <typename Value>
using Words = std::initializer_list<std::pair<const char *, Value>>;

constexpr unsigned SCREEN_WIDTH_MIN = 640;
constexpr unsigned SCREEN_HEIGHT_MIN = 480;
constexpr unsigned SCREEN_SIDE_MAX = 16384;

// Reads values by path and keeps the first complaint.
class ConfigReader
{
public:
    ConfigReader(const kv *config, const char *file) : m_config(config), m_file(file) {}

    const ServiceFailure &failure() const { return m_failure; }

    void fail(const std::string &key, const std::string &message)
    {
        if (!m_failure)
            m_failure = {0, m_file + ": " + key + ": " + message};
    }
    // The node at a path; null when it is absent or has no value.
    const kv *node(const std::string &key) const
    {
        const kv *found = kv_find(m_config, key.c_str());
        return kv_type(found) == KV_NONE ? nullptr : found;
    }
    std::string text(const std::string &key, const std::string &missing = {})
    {
        const kv *found = node(key);
        if (!found)
            return missing;
        const char *value = kv_str(found, nullptr);
        if (!value)
            fail(key, "a text is expected");
        return value ? value : missing;
    }
    uint64_t number(const std::string &key, uint64_t missing, uint64_t least, uint64_t most)
    {
        const kv *found = node(key);
        if (!found)
            return missing;
        const int64_t value = kv_int(found, -1);
        if (kv_type(found) == KV_INT && value >= 0 && uint64_t(value) >= least &&
            uint64_t(value) <= most)
            return uint64_t(value);
        const char *written = kv_str(found, nullptr);
        fail(key, (written                    ? "\"" + std::string(written) + "\""
                   : kv_type(found) == KV_INT ? std::to_string(value)
                                              : std::string("the value")) +
                      " is not a number from " + std::to_string(least) + " to " +
                      std::to_string(most));
        return missing;
    }
    bool truth(const std::string &key, bool missing)
    {
        const kv *found = node(key);
        if (!found)
            return missing;
        if (kv_type(found) != KV_BOOL)
            fail(key, "true or false is expected");
        return kv_int(found, missing) != 0;
    }
    template <typename Value>
    Value word(const std::string &key, Value missing, Words<Value> words)
    {
        const kv *found = node(key);
        if (!found)
            return missing;
        const char *written = kv_str(found, "");
        std::string known;
        for (const auto &[name, value] : words) {
            if (std::string_view(name) == written)
                return value;
            known += (known.empty() ? "" : ", ") + std::string(name);
        }
        fail(key, "\"" + std::string(written) + "\" is not one of " + known);
        return missing;
    }
    // The number of mappings in a list, 0 when absent.
    size_t items(const std::string &key, size_t most)
    {
        const kv *list = node(key);
        if (!list)
            return 0;
        if (kv_type(list) != KV_LIST) {
            fail(key, "a list is expected");
            return 0;
        }
        if (kv_count(list) > most)
            fail(key, "at most " + std::to_string(most) + " are possible");
        size_t index = 0;
        for (const kv *item = kv_first(list); item; item = kv_next(item), index++)
            if (kv_type(item) != KV_MAP)
                fail(key + "[" + std::to_string(index) + "]", "a mapping is expected");
        return m_failure ? 0 : kv_count(list);
    }

private:
    const kv *m_config;
    std::string m_file;
    ServiceFailure m_failure;
};

std::string item_key(const char *list, size_t index, const char *key)
{
    return std::string(list) + "[" + std::to_string(index) + "]." + key;
}

bool is_mac(const std::string &mac)
{
    if (mac.size() != 17)
        return false;
    for (size_t i = 0; i < mac.size(); i++)
        if (i % 3 == 2 ? mac[i] != ':' : !std::isxdigit(static_cast<unsigned char>(mac[i])))
            return false;
    return true;
}

bool is_uuid(const std::string &uuid)
{
    if (uuid.size() != 36)
        return false;
    for (size_t i = 0; i < uuid.size(); i++) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? uuid[i] != '-' : !std::isxdigit(static_cast<unsigned char>(uuid[i])))
            return false;
    }
    return true;
}

void read_disks(ConfigReader &reader, Machine *machine)
{
    const size_t count = reader.items("hard_drives", MACHINE_DISK_MAX);
    for (size_t i = 0; i < count; i++) {
        MachineDisk disk;
        const std::string key = item_key("hard_drives", i, "file");
        disk.file = reader.text(key);
        if (disk.file.empty())
            reader.fail(key, "the disk's image is not named");
        disk.format = reader.word<const char *>(item_key("hard_drives", i, "format"), "",
                                                {{"qcow2", "qcow2"}, {"raw", "raw"}});
        disk.controller = reader.word(
            item_key("hard_drives", i, "controller"), DiskController::ablk,
            {{"ablk", DiskController::ablk}, {"virtio-blk", DiskController::virtio_blk}});
        machine->disks.push_back(std::move(disk));
    }
}

void read_networks(ConfigReader &reader, Machine *machine)
{
    const size_t count = reader.items("network", MACHINE_NETWORK_MAX);
    for (size_t i = 0; i < count; i++) {
        MachineNetwork network;
        network.mode = reader.word(item_key("network", i, "mode"), NetworkMode::shared,
                                   {{"host", NetworkMode::host},
                                    {"shared", NetworkMode::shared},
                                    {"bridge", NetworkMode::bridge},
                                    {"disconnected", NetworkMode::disconnected}});
        network.controller = reader.word(
            item_key("network", i, "controller"), NetworkController::anet,
            {{"anet", NetworkController::anet}, {"virtio-net", NetworkController::virtio_net}});
        const std::string key = item_key("network", i, "mac");
        network.mac = reader.text(key);
        if (network.mac.empty())
            network.mac = machine_default_mac(machine->id, unsigned(i));
        else if (!is_mac(network.mac))
            reader.fail(key, "\"" + network.mac + "\" is not an address like 52:54:00:12:34:56");
        if (network.mode == NetworkMode::bridge)
            network.bridge = reader.text(item_key("network", i, "bridge"), "br0");
        machine->networks.push_back(std::move(network));
    }
}

void read_displays(ConfigReader &reader, Machine *machine)
{
    const size_t count = reader.items("displays", MACHINE_DISPLAY_MAX);
    for (size_t i = 0; i < count; i++) {
        MachineDisplay display;
        display.width = uint32_t(reader.number(item_key("displays", i, "width"), display.width,
                                               SCREEN_WIDTH_MIN, SCREEN_SIDE_MAX));
        display.height = uint32_t(reader.number(item_key("displays", i, "height"), display.height,
                                                SCREEN_HEIGHT_MIN, SCREEN_SIDE_MAX));
        display.hdpi = reader.truth(item_key("displays", i, "hdpi"), false);
        machine->displays.push_back(display);
    }
    if (machine->displays.empty())
        machine->displays.emplace_back();
}

} // namespace

ServiceFailure machine_parse(const kv *config, const char *id, const char *file, Machine *machine)
{
    ConfigReader reader(config, file);
    *machine = Machine();
    machine->id = id;
    machine->name = reader.text("name");
    machine->uuid = reader.text("uuid", machine->id);
    if (!is_uuid(machine->uuid))
        reader.fail("uuid", "\"" + machine->uuid + "\" is not a UUID");
    machine->cpu_count = unsigned(reader.number("cpu.count", 1, 1, VM_CPU_MAX));
    machine->ram_size = reader.number("ram.size", machine->ram_size, VM_RAM_MIN, VM_RAM_MAX);
    machine->firmware = reader.word("firmware", Firmware::bios,
                                    {{"bios", Firmware::bios}, {"uefi", Firmware::uefi}});
    if (machine->firmware == Firmware::uefi && machine->ram_size < VM_RAM_UEFI_MIN)
        reader.fail("ram.size", "UEFI needs " + std::to_string(VM_RAM_UEFI_MIN) + " bytes");
    machine->type = reader.text("machine");
    if (!machine->type.empty() && !machine_type_is_name(machine->type))
        reader.fail("machine", "\"" + machine->type + "\" is no machine type of QEMU");
    read_disks(reader, machine);
    machine->cdrom = reader.text("cdrom");
    read_networks(reader, machine);
    read_displays(reader, machine);
    machine->audio = reader.truth("audio", false);
    machine->boot = reader.word("boot", BootDevice::disk,
                                {{"disk", BootDevice::disk},
                                 {"cdrom", BootDevice::cdrom},
                                 {"network", BootDevice::network}});
    machine->state_file = reader.text("state_file");
    return reader.failure();
}

std::string machine_default_mac(const std::string &id, unsigned index)
{
    uint32_t hash = 2166136261u; // FNV-1a
    for (const char c : id + "/" + std::to_string(index))
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    std::array<char, 18> text;
    std::snprintf(text.data(), text.size(), "52:54:00:%02x:%02x:%02x", hash >> 16 & 0xff,
                  hash >> 8 & 0xff, hash & 0xff);
    return text.data();
}

bool machine_is_url(const std::string &file)
{
    return file.find("://") != std::string::npos;
}
