// The table of settings: records kept in ascending byte order of their keys.
#pragma once

#include "hostlib/config/config.h"

#include <string>

// The version of the add-ons package that is installed, or null (logged). Cached once it is known.
const char *config_addons_version();

// An empty table; null with errno set.
ConfigTable *config_table_new();
void config_table_free(ConfigTable *table);
// The entry of a key, or null; with a null key the first.
ConfigEntry *config_table_find(const ConfigTable *table, const char *key);
// Gives a key its value. One that is there already is overridden from then on, and loses its path.
void config_table_set(ConfigTable *table, const char *key, const char *value, bool overridden);
// Takes the lines of a settings file's text; malformed ones are passed over.
void config_table_parse(ConfigTable *table, std::string text);
