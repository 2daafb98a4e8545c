#include "services/engine/machine.h"
#include "services/notify/notify.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/image_probe.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/sizes.h"
#include "services/tarvctl/store.h"

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
    image // a path or file URL; empty for none
};
struct Key
{
    std::string_view pattern;
    ValueKind kind;
};
constexpr Key keys[] = {
    {"name", ValueKind::name},
    {"cpu.count", ValueKind::number},
    {"ram.size", ValueKind::bytes},
    {"firmware", ValueKind::text},
    {"boot", ValueKind::text},
    {"audio", ValueKind::truth},
    {"cdrom", ValueKind::image},
    {"hard_drives[#].controller", ValueKind::text},
    {"network[#].mode", ValueKind::text},
    {"network[#].controller", ValueKind::text},
    {"network[#].mac", ValueKind::text},
    {"network[#].bridge", ValueKind::text},
    {"displays[#].width", ValueKind::number},
    {"displays[#].height", ValueKind::number},
    {"displays[#].hdpi", ValueKind::truth},
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
    for (const Key &known : keys)
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

KvOwner make_value(const Key &known, const std::string &key, const std::string &text)
{
    const std::string what = "modify: " + key;
    switch (known.kind) {
    case ValueKind::number:
        return KvOwner(
            kv_new_type(KV_INT, static_cast<int64_t>(parse_number(what, text, 0, UINT32_MAX))));
    case ValueKind::bytes:
        return KvOwner(kv_new_type(
            KV_INT, static_cast<int64_t>(parse_bytes(what, text, RAM_LEAST, RAM_MOST))));
    case ValueKind::truth:
        return KvOwner(kv_new_type(KV_BOOL, static_cast<int64_t>(parse_truth(key, text))));
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
    std::string error;
    if (!machine_parse(record, ref.id.c_str(), ref.label().c_str(), &machine, &error))
        throw Failure(ExitStatus::input, error);
}

} // namespace

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
    for (size_t index = 0; index < pairs.size(); index += 2) {
        const bool is_name = pairs[index] == "name";
        if (is_name && !names)
            names = library.lock();
        if (is_name)
            library.check_name_free(pairs[index + 1], ref.id);
        else if (is_suspended(record.get()))
            throw Failure(ExitStatus::state, ref.label() + ": is suspended: only its name can be "
                                                           "changed until it has run again");
        set_key(record.get(), pairs[index], pairs[index + 1]);
    }
    check_machine(record.get(), ref);
    if (vm_write_config(library.open(ref).get(), record.get()) != 0)
        throw system_failure(ref.label() + ": failed to write its configuration", errno);
    notify_post("change", ref.id.c_str());
    return {.body = {{"id", ref.id}, {"name", config_text(record.get(), "name")}}};
}
