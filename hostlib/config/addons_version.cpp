#include "hostlib/config/config_table.h"

#include "hostlib/utils/proc.h"
#include "hostlib/utils/utils.h"

#include "platform/host.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char LABEL[] = "version: ";
constexpr size_t LABEL_LENGTH = sizeof LABEL - 1;

char version[32];
FILE *output;

// Takes one line of the tool's output.
void take_line(char *line, size_t length)
{
    while (length > 0 && static_cast<unsigned char>(line[length - 1]) <= 32)
        length--;
    line[length] = '\0';
    if (std::strncmp(line, LABEL, LABEL_LENGTH) == 0)
        std::snprintf(version, sizeof version, "%.31s", line + LABEL_LENGTH);
}

// Keeps the version that the installer's tool prints. The bytes consumed.
ssize_t config_get_addons_version_cb(void *, int stdout_fd, int)
{
    if (output == nullptr)
        output = fdopen(fcntl(stdout_fd, F_DUPFD_CLOEXEC, 0), "rb");
    if (output == nullptr)
        return -1;
    ssize_t consumed = 0;
    bool at_start = true;
    char line[1024];
    while (std::fgets(line, sizeof line, output) != nullptr) {
        const size_t length = std::strlen(line);
        const bool ended = length > 0 && line[length - 1] == '\n';
        consumed += ssize_t(length);
        // What comes of a line beyond its first kilobyte is of no interest.
        if (at_start)
            take_line(line, length);
        at_start = ended;
    }
    return consumed;
}

} // namespace

const char *config_addons_version()
{
    if (*version != '\0')
        return version;
    const int status =
        proc_exec(platform_path(PlatformPath::pkgutil), config_get_addons_version_cb, nullptr,
                  PROC_STDERR | 2, "--pkg-info", config_get_str("addons_pkg"), log_fd);
    if (output != nullptr)
        std::fclose(output);
    output = nullptr;
    if (status == 0 && *version != '\0')
        return version;
    dprintf(log_fd, "config: failed to get addons version: pkgutil tool ended with status %d\r\n",
            status);
    return nullptr;
}
