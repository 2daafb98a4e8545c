#include "hostlib/vm/used_state.h"

#include "hostlib/vm/vm.h"
#include "platform/new_file.h"
#include "platform/unique_fd.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <limits.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char *MARK_NAME = "state.used";

} // namespace

int vm_mark_state_used(const struct vm *vm, const char *image)
{
    // The VM's only supervisor writes it, which holds the VM's socket.
    return platform_replace_file(vm_dir(vm), MARK_NAME, std::string(image) + "\n", 0600,
                                 FileMakers::one);
}

int vm_state_used(const struct vm *vm, const char *image)
{
    const UniqueFd fd(openat(vm_dir(vm), MARK_NAME, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd)
        return errno == ENOENT ? 0 : -1;
    std::array<char, PATH_MAX + 2> text;
    size_t size = 0;
    while (size < text.size()) {
        const ssize_t got = read(fd.get(), text.data() + size, text.size() - size);
        if (got == 0)
            break;
        if (got < 0 && errno != EINTR)
            return -1;
        size += size_t(got > 0 ? got : 0);
    }
    const std::string_view line(text.data(), size);
    return line.substr(0, line.find('\n')) == image ? 1 : 0;
}

int vm_unmark_state(const struct vm *vm)
{
    if (unlinkat(vm_dir(vm), MARK_NAME, 0) != 0)
        return errno == ENOENT ? 0 : -1;
    return platform_sync_directory_of(vm_dir(vm), MARK_NAME);
}
