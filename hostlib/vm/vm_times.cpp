#include "hostlib/vm/vm.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/img.h"
#include "platform/stat.h"
#include "policy/owners.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace {

void keep_later(struct timespec *time, const struct timespec &other)
{
    if (std::pair(other.tv_sec, other.tv_nsec) > std::pair(time->tv_sec, time->tv_nsec))
        *time = other;
}

// An item of a list that holds something.
bool is_filled(const struct kv *item)
{
    return kv_count(item) > 0;
}

struct kv *first_drive(const struct kv *config)
{
    const struct kv *drives = kv_get(config, "hard_drives");
    return kv_type(drives) == KV_LIST ? kv_first(drives) : nullptr;
}

bool is_in_library(const char *file)
{
    return file[0] != '/' && !strstr(file, "://");
}

int add_drives(const struct kv *config, struct timespec *time)
{
    for (struct kv *drive = first_drive(config); is_filled(drive); drive = kv_next(drive)) {
        const char *file = kv_get_str(drive, "file", nullptr);
        if (!file || !is_in_library(file))
            continue;
        struct stat found;
        if (fstatat(img_libfd(), file, &found, 0) != 0)
            return -1;
        keep_later(time, platform_modified(found));
    }
    return 0;
}

int64_t stop_date_failed(const struct vm *vm, const char *file)
{
    const int error = errno;
    const char *id = vm_getid(vm);
    if (!id)
        id = "(null)";
    if (file)
        dprintf(log_fd, "vm: %s: failed to stat %s: %s\r\n", id, file, strerror(error));
    else
        dprintf(log_fd, "vm: %s: failed to read config: %s\r\n", id, strerror(error));
    errno = error;
    return -1;
}

} // namespace

int vm_mtime(struct vm *vm, struct timespec *time)
{
    if (!vm) {
        errno = ENOENT;
        return -1;
    }
    const char *name = vm_config_path(vm);
    struct stat config_file, nvram;
    if (!name || fstatat(vm->dirfd, name, &config_file, 0) != 0 ||
        fstatat(vm->dirfd, vm_nvram_path(), &nvram, 0) != 0)
        return -1;
    struct timespec latest = platform_modified(config_file);
    keep_later(&latest, platform_modified(nvram));
    const KvOwner config(vm_read_config(vm));
    if (!config || add_drives(config.get(), &latest) != 0)
        return -1;
    if (time)
        *time = latest;
    return 0;
}

int vm_atime(struct vm *vm, struct timespec *time)
{
    return vm_mtime(vm, time);
}

int64_t vm_stop_date(struct vm *vm)
{
    const KvOwner config(vm_read_config(vm));
    if (!config)
        return stop_date_failed(vm, nullptr);
    const struct kv *drive = first_drive(config.get());
    const char *file = is_filled(drive) ? kv_get_str(drive, "file", nullptr) : nullptr;
    if (!file)
        return -1;
    struct stat found;
    if (fstatat(file[0] == '/' ? AT_FDCWD : img_libfd(), file, &found, 0) != 0)
        return stop_date_failed(vm, file);
    return found.st_mtime;
}
