// Any text as a settings file: the table stays sorted and its links whole.
#include "hostlib/config/config_table.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ConfigTable *table = config_table_new();
    const std::string text(reinterpret_cast<const char *>(data), size);
    config_table_parse(table, text);
    ConfigEntry **link = &table->first;
    for (ConfigEntry *entry = table->first; entry != nullptr; entry = entry->next) {
        if (entry->previous != link)
            std::abort();
        if (entry->next != nullptr && std::strcmp(entry->name, entry->next->name) >= 0)
            std::abort();
        if (config_table_find(table, entry->name) != entry)
            std::abort();
        const char *path = config_entry_get_path(entry);
        if (path != nullptr && std::strlen(path) == 0)
            std::abort();
        link = &entry->next;
    }
    config_table_free(table);
    return 0;
}
