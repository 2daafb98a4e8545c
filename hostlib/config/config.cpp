#include "hostlib/config/config.h"

#include "hostlib/config/config_table.h"
#include "hostlib/utils/utils.h"

#include "platform/host.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <err.h>
#include <string>
#include <strings.h>
#include <vector>

ConfigTable *config;
int config_debug_mode = 0;

namespace {

constexpr size_t PATH_SIZE = 1024;
constexpr int STATUS_BAD_CONFIG = 78; // EX_CONFIG of sysexits.h

std::string search_list()
{
    if (const char *list = std::getenv("TARV_CONFIG_PATH"))
        return list;
    return std::string(platform_path(PlatformPath::support_dir)) + ":~/.tarv/settings.ini";
}

// The entry of a key; one that is absent is logged.
ConfigEntry *find_or_log(const char *key)
{
    ConfigEntry *entry = config_find(key);
    if (entry == nullptr) {
        dprintf(log_fd, "config: %s: parameter not found\r\n", key);
        errno = ENOENT;
    }
    return entry;
}

std::string image_path()
{
    std::string list;
    for (const char *key : {"img_path", "img_lib_dir", "tag_lib_dir"}) {
        const char *path = config_get_path(key);
        // A plain search, on purpose: a path that another one begins with is left out too.
        if (path == nullptr || list.find(path) != std::string::npos)
            continue;
        list += (list.empty() ? "" : ":") + std::string(path);
    }
    return list;
}

bool is_one_of(const char *text, std::initializer_list<const char *> words)
{
    for (const char *word : words)
        if (strcasecmp(text, word) == 0)
            return true;
    return false;
}

} // namespace

ConfigEntry *config_find(const char *key)
{
    if (config == nullptr) {
        config = config_open(search_list().c_str());
        if (config == nullptr)
            errx(STATUS_BAD_CONFIG, "failed to read config: %s", std::strerror(errno));
    }
    return config_table_find(config, key);
}

const char *config_get_str(const char *key)
{
    if (std::strcmp(key, "addons_version") == 0 || std::strcmp(key, "addons-version") == 0)
        return config_addons_version();
    const ConfigEntry *entry = find_or_log(key);
    return entry != nullptr && *entry->value != '\0' ? entry->value : nullptr;
}

const char *config_entry_get_path(ConfigEntry *entry)
{
    // Threads look paths up at once. One is shown to the others only when it is whole; of two that
    // were made at the same time the first stays, since it may be in use already.
    const std::atomic_ref<char *> shared(entry->path);
    char *path = shared.load();
    if (path != nullptr)
        return path;
    if (std::strncmp(entry->value, "~/", 2) != 0)
        return *entry->value != '\0' ? entry->value : nullptr;
    char *made = static_cast<char *>(std::malloc(PATH_SIZE));
    if (made == nullptr)
        return nullptr;
    std::snprintf(made, PATH_SIZE, "%s%s", home_dir(), entry->value + 1);
    if (shared.compare_exchange_strong(path, made))
        return made;
    std::free(made);
    return path;
}

const char *config_get_path(const char *key)
{
    ConfigEntry *entry = find_or_log(key);
    return entry != nullptr ? config_entry_get_path(entry) : nullptr;
}

int config_get_path_r(const char *key, char *buffer, size_t size)
{
    ConfigEntry *entry = config_find(key);
    const char *path = entry != nullptr ? config_entry_get_path(entry) : nullptr;
    if (path == nullptr) {
        errno = ENOENT;
        return -1;
    }
    const size_t length = std::strlen(path);
    if (length > size) {
        errno = ENOBUFS;
        return -1;
    }
    std::memcpy(buffer, path, length + 1);
    return int(length);
}

int64_t config_get_long(const char *key)
{
    if (std::strcmp(key, "debug_mode") == 0)
        return config_debug_mode;
    const char *text = config_get_str(key);
    if (text == nullptr)
        return 0;
    if (is_one_of(text, {"true", "yes", "on"}))
        return 1;
    if (is_one_of(text, {"false", "no", "off"}))
        return 0;
    char *end;
    const long number = std::strtol(text, &end, 0);
    return *end == '\0' ? number : 0;
}

void config_set_path(const char *key, const char *text)
{
    // Paths that were handed out stay valid for the rest of the process.
    static auto *handed_out = new std::vector<char *>;
    ConfigEntry *entry = config_find(key);
    if (entry == nullptr)
        return;
    if (entry->path != nullptr)
        handed_out->push_back(entry->path);
    entry->path = text != nullptr ? strdup(text) : nullptr;
}

int config_get_platform()
{
    static const int platform = platform_host_is_arm64() == 1 ? 2 : 1;
    return platform;
}

const char *config_img_path()
{
    // Never destroyed: threads may outlive the end of main().
    static const auto *const list = new std::string(image_path());
    return list->empty() ? nullptr : list->c_str();
}
