#include "hostlib/config/config.h"
#include "hostlib/utils/proc.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vm/addons.h"
#include "hostlib/vm/line.h"
#include "hostlib/vm/nvram_lines.h"
#include "hostlib/vm/vm.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"

#include <cerrno>
#include <fcntl.h>

namespace {

constexpr const char *TOOL_KEY = "fvutil_executable";
constexpr std::string_view WHITE_SPACE{" \t\n\v\f\r"};

// Two argument strings, standard error to a descriptor.
constexpr uint32_t READ_FLAGS = PROC_STDERR | 2;
// Three argument strings, both outputs to descriptors.
constexpr uint32_t WRITE_FLAGS = PROC_STDOUT | PROC_STDERR | 3;
static_assert(READ_FLAGS == 524290 && WRITE_FLAGS == 786435);

// Runs the tool with two arguments in the VM's directory. False when it failed (logged).
bool run_tool(const char *tool, const struct vm *vm, const char *first, const char *second,
              std::vector<std::string> *lines)
{
    nvram_lines collector;
    const int status = proc_fexec(tool, vm_dir(vm), vm_read_nvram_cb, &collector, READ_FLAGS, first,
                                  second, log_fd);
    if (status != 0) {
        dprintf(log_fd, "vm: %s exit status %d\r\n", "fvutil", status);
        errno = EFAULT;
        return false;
    }
    *lines = std::move(collector.lines);
    return true;
}

// The first line that the tool prints for a variable; null with EFAULT when it fails, with ENOENT
// when it prints none.
KvOwner read_variable(const char *tool, const struct vm *vm, const char *name)
{
    std::vector<std::string> lines;
    if (!run_tool(tool, vm, "nvram", name, &lines))
        return nullptr;
    if (lines.empty()) {
        errno = ENOENT;
        return nullptr;
    }
    return KvOwner(kv_new_type(KV_STRING, lines.front().c_str()));
}

KvOwner read_all(const char *tool, const struct vm *vm)
{
    std::vector<std::string> lines;
    KvOwner values(kv_new_type(KV_LIST));
    if (!values || !run_tool(tool, vm, "-a", "nvram", &lines))
        return nullptr;
    for (const std::string &line : lines) {
        const std::string name(nvram_name(line));
        if (name.empty())
            continue;
        KvOwner value = read_variable(tool, vm, name.c_str());
        if (value)
            kv_set(values.get(), nullptr, value.release());
        else if (errno != ENOENT)
            return nullptr;
    }
    return values;
}

} // namespace

std::string_view nvram_trim(std::string_view line)
{
    const size_t first = line.find_first_not_of(WHITE_SPACE);
    if (first == line.npos)
        return {};
    return line.substr(first, line.find_last_not_of(WHITE_SPACE) - first + 1);
}

std::string_view nvram_name(std::string_view line)
{
    size_t space = line.find(' ');
    for (int i = 1; i < 3 && space != line.npos; ++i)
        space = line.find(' ', space + 1);
    return space == line.npos ? std::string_view() : line.substr(space + 1);
}

ssize_t vm_read_nvram_cb(void *collector, int stdout_fd, int)
{
    auto *const into = static_cast<nvram_lines *>(collector);
    if (!into->stream) {
        UniqueFd fd(stdout_fd < 0 ? -1 : fcntl(stdout_fd, F_DUPFD_CLOEXEC, 0));
        into->stream.reset(fd ? fdopen(fd.get(), "rb") : nullptr);
        if (!into->stream)
            return 0;
        fd.release();
    }
    ssize_t total = 0;
    std::string line;
    while (const size_t length = line_read(into->stream.get(), &line)) {
        total += static_cast<ssize_t>(length);
        if (into->lines.size() < NVRAM_LINES_MAX)
            into->lines.emplace_back(nvram_trim(line));
    }
    return total;
}

struct kv *vm_read_nvram(struct vm *vm, const char *name)
{
    const char *tool = config_get_path(TOOL_KEY);
    if (!tool)
        return nullptr;
    return (name ? read_variable(tool, vm, name) : read_all(tool, vm)).release();
}

int vm_write_nvram(struct vm *vm, const char *name, const char *value)
{
    const char *tool = config_get_path(TOOL_KEY);
    if (!tool) {
        dprintf(log_fd, "vm: fvutil not configured\r\n");
        errno = ENOEXEC;
        return -1;
    }
    int result = value ? proc_fexec(tool, vm_dir(vm), nullptr, nullptr, WRITE_FLAGS, "nvram", name,
                                    value, log_fd, log_fd)
                       : proc_fexec(tool, vm_dir(vm), nullptr, nullptr, WRITE_FLAGS, "-d", "nvram",
                                    name, log_fd, log_fd);
    if (result == 0)
        return 0;
    if (result == -1)
        result = -errno;
    dprintf(log_fd, "vm: failed to set nvram variable %s: error %d\r\n", name, result);
    errno = EPERM;
    return -1;
}
