#include "hostlib/config/config_table.h"

#include "hostlib/utils/utils.h"

#include "platform/file.h"
#include "platform/host.h"
#include "platform/owners.h"
#include "platform/process.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ini.h>
#include <string>
#include <string_view>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t FILE_CAP = 1 << 20;

using TableOwner = std::unique_ptr<ConfigTable, Closer<config_table_free>>;

// What a settings file holds, up to the cap. False with errno set when there is more than was read.
bool read_file(int fd, std::string &text)
{
    char chunk[8192];
    // One byte past the cap tells a file of just that size from a longer one.
    while (text.size() <= FILE_CAP) {
        const ssize_t count = read(fd, chunk, std::min(sizeof chunk, FILE_CAP + 1 - text.size()));
        if (count == 0)
            return true;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        text.append(chunk, size_t(count));
    }
    text.resize(FILE_CAP);
    errno = EFBIG;
    return false;
}

// Takes the lines of an open file into the table. Only a file that can't be opened is an error of
// the settings; one that can't be read gives what was read of it.
void parse_file(ConfigTable *table, int fd)
{
    std::string text;
    if (!read_file(fd, text)) {
        const char *reason = std::strerror(errno);
        char path[1024] = "?";
        platform_fd_path(fd, path, sizeof path);
        dprintf(log_fd, "config: %s: %s\r\n", path, reason);
    }
    config_table_parse(table, std::move(text));
}

// The files that are looked for in a directory, in this order. What can't be opened is skipped.
void parse_directory(ConfigTable *table, int dirfd)
{
    const char *user = platform_user_name(getuid());
    const std::string names[] = {
        "settings.ini", std::string("settings_") + platform_build_name() + ".ini",
        "settings_" + (user != nullptr ? std::string(user) : std::to_string(getuid())) + ".ini"};
    for (const std::string &name : names) {
        const UniqueFd fd(platform_openat_locked(dirfd, name.substr(0, 255).c_str(), O_RDONLY,
                                                 FileLock::shared, 0));
        if (fd)
            parse_file(table, fd.get());
    }
}

UniqueFd open_element(const char *path)
{
    if (std::strncmp(path, "~/", 2) != 0)
        return UniqueFd(platform_openat_locked(AT_FDCWD, path, O_RDONLY, FileLock::shared, 0));
    const int home = home_fd();
    if (home == -1) {
        const int error = errno;
        dprintf(log_fd, "config: %s is passed over: home directory \"%s\": %s\r\n", path,
                home_dir(), std::strerror(error));
        errno = error;
        return {};
    }
    return UniqueFd(platform_openat_locked(home, path + 2, O_RDONLY, FileLock::shared, 0));
}

// One element of the search list. False with errno set.
bool read_element(ConfigTable *table, const char *path)
{
    const UniqueFd fd = open_element(path);
    struct stat status;
    if (!fd || fstat(fd.get(), &status) != 0)
        return errno == ENOENT;
    if (S_ISDIR(status.st_mode))
        parse_directory(table, fd.get());
    else
        parse_file(table, fd.get());
    return true;
}

// Makes the product's directories, unless a user has moved them. Failures show where they are used.
void make_directories(const ConfigTable *table)
{
    for (const char *key : {"vm_lib_dir", "img_lib_dir", "state_lib_dir", "tag_lib_dir"}) {
        ConfigEntry *entry = config_table_find(table, key);
        if (entry == nullptr || entry->overridden != 0)
            continue;
        const char *path = config_entry_get_path(entry);
        if (path != nullptr && *path != '\0' && access(path, F_OK) != 0 && errno == ENOENT)
            mkdirat_p(AT_FDCWD, path, 0755);
    }
}

} // namespace

void config_table_parse(ConfigTable *table, std::string text)
{
    if (text.empty())
        return;
    const FileOwner stream(fmemopen(text.data(), text.size(), "r"));
    if (!stream)
        return;
    // The parser would cut lines at 200 bytes.
    ini_use_stack = false;
    ini_allow_realloc = true;
    ini_max_line = int(FILE_CAP) + 3;
    ini_parse_file(stream.get(), config_handler, table);
}

int config_handler(void *table, const char *section, const char *key, const char *value)
{
    if (strcasecmp(section, "tarv") != 0)
        return 1;
    char variable[134];
    std::snprintf(variable, sizeof variable, "TARV_%s", key);
    for (char *letter = variable; *letter != '\0'; letter++)
        *letter = char(std::toupper(static_cast<unsigned char>(*letter)));
    const char *environment = std::getenv(variable);
    config_table_set(static_cast<ConfigTable *>(table), key,
                     environment != nullptr ? environment : value, environment != nullptr);
    return 1;
}

ConfigTable *config_open(const char *list)
{
    TableOwner table(config_table_new());
    if (!table)
        return nullptr;
    for (std::string_view rest = list;;) {
        const size_t colon = rest.find(':');
        if (!read_element(table.get(), std::string(rest.substr(0, colon)).c_str()))
            return nullptr;
        if (colon == std::string_view::npos)
            break;
        rest.remove_prefix(colon + 1);
    }
    make_directories(table.get());
    return table.release();
}
