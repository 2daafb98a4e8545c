// Any text as a settings file: the table stays sorted and its links whole, and holds what a plain
// map holds that is given the same lines.
#include "hostlib/config/config_table.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ini.h>
#include <map>
#include <strings.h>

namespace {

struct Setting
{
    std::string value;
    bool overridden = false;
};
using Plain = std::map<std::string, Setting>;

void check(bool holds)
{
    if (!holds)
        std::abort();
}

int keep(void *plain, const char *section, const char *key, const char *value)
{
    if (strcasecmp(section, "tarv") == 0) {
        const auto [place, added] = static_cast<Plain *>(plain)->try_emplace(key);
        place->second = {value, !added};
    }
    return 1;
}

// Entry by entry: both are in ascending order of the bytes of the keys.
void compare(const ConfigTable *table, const Plain &plain)
{
    const ConfigEntry *entry = table->first;
    for (const auto &[key, setting] : plain) {
        check(entry != nullptr && key == entry->name);
        check(setting.value == entry->value && setting.overridden == (entry->overridden != 0));
        entry = entry->next;
    }
    check(entry == nullptr);
}

} // namespace

// Variables of the environment stand above the file, and are none of this.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    return clearenv();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ConfigTable *table = config_table_new();
    const std::string text(reinterpret_cast<const char *>(data), size);
    config_table_parse(table, text);
    Plain plain;
    if (FILE *stream = size ? fmemopen(const_cast<uint8_t *>(data), size, "r") : nullptr) {
        ini_parse_file(stream, keep, &plain);
        fclose(stream);
    }
    compare(table, plain);
    ConfigEntry **link = &table->first;
    for (ConfigEntry *entry = table->first; entry != nullptr; entry = entry->next) {
        check(entry->previous == link);
        check(config_table_find(table, entry->name) == entry);
        const char *path = config_entry_get_path(entry);
        check(path == nullptr || std::strlen(path) != 0);
        link = &entry->next;
    }
    config_table_free(table);
    return 0;
}
