#include "hostlib/config/config_table.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// The link that points, or would point, at the entry of a key.
ConfigEntry **find_link(ConfigTable *table, const char *key)
{
    ConfigEntry **link = &table->first;
    while (*link != nullptr && std::strcmp((*link)->name, key) < 0)
        link = &(*link)->next;
    return link;
}

void link_in(ConfigEntry **link, ConfigEntry *entry)
{
    entry->next = *link;
    entry->previous = link;
    if (entry->next != nullptr)
        entry->next->previous = &entry->next;
    *link = entry;
}

void unlink(ConfigEntry *entry)
{
    *entry->previous = entry->next;
    if (entry->next != nullptr)
        entry->next->previous = entry->previous;
}

// A record with room for the key and the value, in place of `old` (or null). It is not in the list.
ConfigEntry *make_entry(ConfigEntry *old, const char *key, const char *value)
{
    const size_t key_size = std::strlen(key) + 1;
    const size_t value_size = std::strlen(value) + 1;
    auto *entry = static_cast<ConfigEntry *>(
        std::realloc(old, offsetof(ConfigEntry, name) + key_size + value_size));
    if (entry == nullptr)
        return nullptr;
    char *name = reinterpret_cast<char *>(entry) + offsetof(ConfigEntry, name);
    std::memcpy(name, key, key_size);
    entry->value = name + key_size;
    std::memcpy(entry->value, value, value_size);
    entry->path = nullptr;
    return entry;
}

} // namespace

ConfigTable *config_table_new()
{
    return static_cast<ConfigTable *>(std::calloc(1, sizeof(ConfigTable)));
}

void config_table_free(ConfigTable *table)
{
    if (table == nullptr)
        return;
    while (ConfigEntry *entry = table->first) {
        unlink(entry);
        std::free(entry->path);
        std::free(entry);
    }
    std::free(table);
}

ConfigEntry *config_table_find(const ConfigTable *table, const char *key)
{
    ConfigEntry *entry = table->first;
    if (key == nullptr)
        return entry;
    while (entry != nullptr && std::strcmp(entry->name, key) < 0)
        entry = entry->next;
    return entry != nullptr && std::strcmp(entry->name, key) == 0 ? entry : nullptr;
}

void config_table_set(ConfigTable *table, const char *key, const char *value, bool overridden)
{
    ConfigEntry *old = config_table_find(table, key);
    if (old != nullptr) {
        unlink(old);
        std::free(old->path);
    }
    ConfigEntry *entry = make_entry(old, key, value);
    if (entry == nullptr) {
        std::free(old);
        return;
    }
    entry->overridden = old != nullptr || overridden ? 1 : 0;
    link_in(find_link(table, key), entry);
}
