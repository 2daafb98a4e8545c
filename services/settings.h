// Settings that several services read, as values that can be used.
#pragma once

#include "hostlib/config/config.h"
#include "services/bounds.h"

#include <string>

// A path or text of the settings, or `missing` where there is none.
inline std::string path_setting(const char *key, const std::string &missing)
{
    const char *value = config_find(key) ? config_get_path(key) : nullptr;
    return value && *value ? value : missing;
}

inline std::string text_setting(const char *key, const std::string &missing)
{
    const char *value = config_find(key) ? config_get_str(key) : nullptr;
    return value && *value ? value : missing;
}

// The setting "stop_wait".
inline std::chrono::seconds stop_wait_setting()
{
    const std::chrono::seconds wait(config_find("stop_wait") ? config_get_long("stop_wait") : 0);
    return wait.count() > 0 && wait <= STOP_WAIT_MAX ? wait : STOP_WAIT_USUAL;
}
