#include "platform/process.h"

#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

// What is read of a file of procfs. The longest, /proc/stat, has its "btime" behind a line for each
// processor.
constexpr size_t READ_CAP = 1 << 20;

// The text of a small system file. False with errno set.
bool read_all(const char *path, std::string &text)
{
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return false;
    text.clear();
    char chunk[4096];
    while (text.size() < READ_CAP) {
        const ssize_t count = read(fd.get(), chunk, sizeof chunk);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        if (count == 0)
            break;
        text.append(chunk, size_t(count));
    }
    return true;
}

// The number after `label`, which begins a line; -1 when there is none.
int64_t labelled_number(std::string_view text, std::string_view label)
{
    size_t at = text.starts_with(label) ? 0 : text.find("\n" + std::string(label));
    if (at == std::string_view::npos)
        return -1;
    at = text.find_first_of("0123456789", at);
    int64_t number = -1;
    if (at != std::string_view::npos)
        std::from_chars(text.data() + at, text.data() + text.size(), number);
    return number;
}

// What the process table says of one process.
struct Record
{
    char state;
    uint64_t start_ticks; // since the machine started
};

enum class Found
{
    yes,
    no,
    failed
};

// Threads have a record under their own number too, but are no processes.
bool is_process(pid_t pid)
{
    std::string text;
    const std::string path = "/proc/" + std::to_string(pid) + "/status";
    return read_all(path.c_str(), text) && labelled_number(text, "Tgid:") == pid;
}

bool parse_record(std::string_view text, Record &record)
{
    // The command's name stands in parentheses and can hold any character, these included.
    const size_t name_end = text.rfind(')');
    if (name_end == std::string_view::npos || name_end + 2 >= text.size())
        return false;
    text.remove_prefix(name_end + 2);
    record.state = text[0];
    // The state is field 3 of the record, the start time field 22.
    for (int field = 3; field < 22; field++) {
        const size_t space = text.find(' ');
        if (space == std::string_view::npos)
            return false;
        text.remove_prefix(space + 1);
    }
    const auto end = text.data() + text.size();
    return std::from_chars(text.data(), end, record.start_ticks).ec == std::errc();
}

Found find_record(pid_t pid, Record &record)
{
    std::string text;
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    if (!read_all(path.c_str(), text))
        return errno == ENOENT || errno == ESRCH ? Found::no : Found::failed;
    if (!parse_record(text, record)) {
        errno = EPROTO;
        return Found::failed;
    }
    return is_process(pid) ? Found::yes : Found::no;
}

int state_code(char letter)
{
    switch (letter) {
    case 'R':
        return PROCESS_RUNNING;
    case 'S':
    case 'D':
        return PROCESS_SLEEPING;
    case 'T':
    case 't':
        return PROCESS_STOPPED;
    case 'Z':
    case 'X':
        return PROCESS_ZOMBIE;
    default:
        return PROCESS_IDLE;
    }
}

// A number for this start of the machine, from which the records count their time. In the bits
// above those that ticks need, and such that the sum is positive as a signed number.
uint64_t boot_number()
{
    std::string id;
    if (!read_all("/proc/sys/kernel/random/boot_id", id))
        return 0;
    uint64_t hash = 0xcbf29ce484222325; // FNV-1a
    for (const char byte : id)
        hash = (hash ^ uint8_t(byte)) * 0x100000001b3;
    return (hash & 0x3fffff) << 40;
}

bool peer_credentials(int fd, struct ucred &credentials)
{
    socklen_t size = sizeof credentials;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0;
}

} // namespace

int platform_process_table()
{
    return access("/proc/self/stat", R_OK);
}

int platform_process_state(pid_t pid)
{
    Record record;
    switch (find_record(pid, record)) {
    case Found::yes:
        return state_code(record.state);
    case Found::no:
        return 0;
    default:
        return -1;
    }
}

int64_t platform_process_start(pid_t pid)
{
    Record record;
    std::string text;
    const Found found = find_record(pid, record);
    if (found == Found::no)
        errno = ESRCH;
    if (found != Found::yes || !read_all("/proc/stat", text))
        return -1;
    const int64_t boot = labelled_number(text, "btime ");
    if (boot < 0) {
        errno = EPROTO;
        return -1;
    }
    return boot + int64_t(record.start_ticks / uint64_t(sysconf(_SC_CLK_TCK)));
}

uint64_t platform_process_identity(pid_t pid)
{
    static const uint64_t boot = boot_number();
    Record record;
    // One is added so that nothing that lives has the identity 0.
    return find_record(pid, record) == Found::yes ? boot + record.start_ticks + 1 : 0;
}

pid_t platform_peer_pid(int fd)
{
    struct ucred credentials;
    return peer_credentials(fd, credentials) ? credentials.pid : -1;
}

int platform_peer_uid(int fd, uid_t *uid)
{
    struct ucred credentials;
    if (!peer_credentials(fd, credentials))
        return -1;
    *uid = credentials.uid;
    return 0;
}

bool platform_program_has_rights(const char *path)
{
    struct stat status;
    if (stat(path, &status) != 0)
        return false;
    return (status.st_mode & S_ISUID) != 0 || getxattr(path, "security.capability", nullptr, 0) > 0;
}

char **platform_environment()
{
    return environ;
}

const char *platform_user_name(uid_t uid)
{
    const struct passwd *entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : nullptr;
}
