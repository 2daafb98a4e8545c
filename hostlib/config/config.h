// Settings: one table of keys from a search list of INI files, with environment overrides. Built
// on the first lookup, which must happen before there is a second thread; never rebuilt. From then
// on any thread may look up, but none may replace a path meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>

// One key. The name and the value stand in the same allocation, behind the record.
struct ConfigEntry
{
    ConfigEntry *next;      // by ascending key
    ConfigEntry **previous; // the link that points here
    char *value;
    char *path;         // expanded path, once asked for; an allocation of its own
    int32_t overridden; // 1: from the environment, or defined more than once
    char name[1];       // zero-terminated, then the value
};

// The head of the list; empty until the first lookup.
struct ConfigTable
{
    ConfigEntry *first;
};
extern ConfigTable *config;
// Answers the key "debug_mode".
extern int config_debug_mode;

// The entry of a key, or null; with a null key the first entry. Unreadable settings end the process
// with status 78.
ConfigEntry *config_find(const char *key);
// The value; null when absent (logged, ENOENT) or empty.
const char *config_get_str(const char *key);
// The value as a path, "~/" expanded; null when absent (logged) or empty.
const char *config_get_path(const char *key);
// Copies the path, of at most `size` characters, and its terminating zero (size + 1 bytes). Its
// length; -1 with ENOENT (absent or empty) or ENOBUFS (longer).
int config_get_path_r(const char *key, char *buffer, size_t size);
// The value as a number or truth value; 0 when absent or neither.
int64_t config_get_long(const char *key);
// Replaces the path of an existing key; its value stays.
void config_set_path(const char *key, const char *text);
// 1 on an Intel host, 2 on an Apple-silicon (arm64) one.
int config_get_platform();
// The ':'-joined list of "img_path", "img_lib_dir" and "tag_lib_dir"; null when all are absent.
const char *config_img_path();
// The path of one entry.
const char *config_entry_get_path(ConfigEntry *entry);

// Reads a ':'-separated list of files and directories into a new table. Null with errno set.
ConfigTable *config_open(const char *list);
// Takes one "key = value" line of a section into a table; the handler of the INI parser.
int config_handler(void *table, const char *section, const char *key, const char *value);
