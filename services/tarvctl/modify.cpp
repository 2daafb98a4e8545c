#include "services/bounds.h"
#include "services/engine/host.h"
#include "services/engine/machine_types.h"
#include "services/notify/notify.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/image_probe.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/sizes.h"
#include "services/tarvctl/store.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace {

// The keys that can be set, "#" standing for an index, and what their values are.
enum class ValueKind
{
    name,
    text,
    number,
    bytes,
    truth,
    image, // a path or file URL; empty for none
    machine
};
struct Key
{
    std::string_view pattern;
    ValueKind kind;
    const char *help;
};
constexpr Key KEYS[] = {
    {"name", ValueKind::name, "name of the VM"},
    {"cpu.count", ValueKind::number, "number of processors, 1 to 255"},
    {"ram.size", ValueKind::bytes, "memory in bytes, or with K, M, G or T"},
    {"firmware", ValueKind::text, "bios or uefi"},
    {"machine", ValueKind::machine, "machine type of QEMU, as pc-q35-7.2, or newest"},
    {"boot", ValueKind::text, "tried first: disk, cdrom or network"},
    {"audio", ValueKind::truth, "a sound card: on or off"},
    {"cdrom", ValueKind::image, "disc image as a path or file URL; empty for none"},
    {"hard_drives[#].controller", ValueKind::text, "ablk or virtio-blk"},
    {"network[#].mode", ValueKind::text, "host, shared, bridge or disconnected"},
    {"network[#].controller", ValueKind::text, "anet or virtio-net"},
    {"network[#].mac", ValueKind::text, "address, as 52:54:00:12:34:56"},
    {"network[#].bridge", ValueKind::text, "bridge of this machine, in mode bridge"},
    {"displays[#].width", ValueKind::number, "pixels, 640 to 16384"},
    {"displays[#].height", ValueKind::number, "pixels, 480 to 16384"},
    {"displays[#].hdpi", ValueKind::truth, "two pixels a point: on or off"},
};

// The key with its indexes as "#".
std::string pattern_of(const std::string &key)
{
    std::string pattern;
    for (size_t at = 0; at < key.size(); ++at) {
        pattern += key[at];
        const size_t end = key.find_first_not_of("0123456789", at + 1);
        if (key[at] == '[' && end != std::string::npos && end > at + 1) {
            pattern += '#';
            at = end - 1;
        }
    }
    return pattern;
}

const Key &find_key(const std::string &key)
{
    const std::string pattern = pattern_of(key);
    for (const Key &known : KEYS)
        if (known.pattern == pattern)
            return known;
    throw Failure(ExitStatus::input, "modify: " + key + ": not a key that can be set");
}

bool parse_truth(const std::string &key, const std::string &text)
{
    for (const char *word : {"true", "yes", "on", "1"})
        if (text == word)
            return true;
    for (const char *word : {"false", "no", "off", "0"})
        if (text == word)
            return false;
    throw Failure(ExitStatus::input, "modify: " + key + ": \"" + text + "\" is neither on nor off");
}

// One that QEMU offers here.
std::string machine_type(const std::string &what, const std::string &text)
{
    std::vector<std::string> types;
    if (const ServiceFailure failure = machine_types_of(qemu_program(), &types))
        throw Failure(ExitStatus::failed, what + ": " + failure.text);
    if (text == "newest")
        return types.front();
    if (std::find(types.begin(), types.end(), text) == types.end())
        throw Failure(ExitStatus::input,
                      what + ": \"" + text +
                          "\" is no machine that this QEMU offers; the newest is " + types.front());
    return text;
}

KvOwner make_value(const Key &known, const std::string &key, const std::string &text)
{
    const std::string what = "modify: " + key;
    switch (known.kind) {
    case ValueKind::number:
        return KvOwner(
            kv_new_type(KV_INT, static_cast<int64_t>(parse_number(what, text, 0, UINT32_MAX))));
    case ValueKind::bytes:
        return KvOwner(kv_new_type(
            KV_INT, static_cast<int64_t>(parse_bytes(what, text, VM_RAM_MIN, VM_RAM_MAX))));
    case ValueKind::truth:
        return KvOwner(kv_new_type(KV_BOOL, static_cast<int64_t>(parse_truth(key, text))));
    case ValueKind::machine:
        return KvOwner(kv_new_type(KV_STRING, machine_type(what, text).c_str()));
    case ValueKind::image:
        return KvOwner(kv_new_type(
            KV_STRING, text.empty() ? "" : probe_image(image_source_path(text)).path.c_str()));
    default:
        return KvOwner(kv_new_type(KV_STRING, text.c_str()));
    }
}

// The mapping that holds a key's last part; one of a plain name is made when it is missing, a
// device is not.
struct kv *parent_of(struct kv *record, const std::string &key, std::string &last)
{
    const size_t dot = key.rfind('.');
    last = dot == std::string::npos ? key : key.substr(dot + 1);
    if (dot == std::string::npos)
        return record;
    const std::string path = key.substr(0, dot);
    struct kv *parent = kv_find(record, path.c_str());
    if (!parent && path.find('[') == std::string::npos) {
        parent = kv_new_type(KV_MAP);
        kv_set(record, path.c_str(), parent);
    }
    if (!parent || kv_type(parent) != KV_MAP)
        throw Failure(ExitStatus::input, "modify: " + key + ": the VM has no " + path);
    return parent;
}

void set_key(struct kv *record, const std::string &key, const std::string &text)
{
    KvOwner value = make_value(find_key(key), key, text);
    std::string last;
    struct kv *parent = parent_of(record, key, last);
    if (kv_set(parent, last.c_str(), value.release()) != 0)
        throw system_failure("modify: " + key, errno);
}

// The whole must still make a machine.
void check_machine(const struct kv *record, const VmRef &ref)
{
    Machine machine;
    if (const auto failure = machine_parse(record, ref.id.c_str(), ref.label().c_str(), &machine))
        throw Failure(ExitStatus::input, failure.text);
}

// What has a shape of its own is fixed while the VM runs or has a saved state: that state fits the
// machine that it was saved from, and no other.
void check_changeable(const VmRef &ref, const struct kv *record)
{
    const char *state = is_suspended(record)                ? "is suspended"
                        : query_state(ref.id, false).runs() ? "is running"
                                                            : nullptr;
    if (state)
        throw Failure(ExitStatus::state, ref.label() + ": " + state +
                                             ": only its name can be changed until it is stopped");
}

} // namespace

std::string modify_keys_help()
{
    std::string text = "Keys, # being the number of a device, from 0:\n";
    for (const Key &key : KEYS) {
        std::string line = "  " + std::string(key.pattern);
        line.resize(30, ' ');
        text += line + key.help + "\n";
    }
    text.pop_back();
    return text;
}

std::vector<std::string> modify_keys()
{
    std::vector<std::string> result;
    for (const Key &key : KEYS) {
        result.emplace_back(key.pattern);
        if (const size_t index = key.pattern.find('#'); index != key.pattern.npos)
            result.back()[index] = '0';
    }
    return result;
}

Answer run_modify(const Arguments &arguments)
{
    const std::vector<std::string> &pairs = arguments.pairs;
    if (pairs.size() % 2 != 0)
        throw Failure(ExitStatus::usage, "modify: " + pairs.back() + ": has no value");
    Library library;
    VmRef ref = library.resolve(arguments.vm);
    UniqueFd lock = library.lock(ref);
    UniqueFd names;
    KvOwner record = library.read_config(ref);
    bool others = false;
    for (size_t index = 0; index < pairs.size(); index += 2) {
        const bool is_name = pairs[index] == "name";
        if (is_name && !names)
            names = library.lock();
        if (is_name)
            library.check_name_free(pairs[index + 1], ref.id);
        else
            check_changeable(ref, record.get());
        set_key(record.get(), pairs[index], pairs[index + 1]);
        others = others || !is_name;
    }
    if (others)
        check_machine(record.get(), ref);
    if (vm_write_config(library.open(ref).get(), record.get()) != 0)
        throw system_failure(ref.label() + ": failed to write its configuration", errno);
    notify_post("change", ref.id.c_str());
    return {.body = {{"id", ref.id}, {"name", config_text(record.get(), "name")}}};
}
