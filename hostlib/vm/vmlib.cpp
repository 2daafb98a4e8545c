#include "hostlib/vm/vmlib.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vm/vmlib_handle.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <strings.h>
#include <sys/stat.h>

namespace {

bool has_file(int dirfd, const char *name)
{
    struct stat found;
    return fstatat(dirfd, name, &found, 0) == 0 && S_ISREG(found.st_mode);
}

bool is_directory(int dirfd, const char *path)
{
    struct stat found;
    return fstatat(dirfd, path, &found, 0) == 0 && S_ISDIR(found.st_mode);
}

// The open record of a VM whose configured name is `name`, or null.
VmOwner open_if_named(const struct vmlib *lib, const char *id, const char *name)
{
    VmOwner vm(vmlib_open_vm(lib, id, nullptr));
    const KvOwner config(vm_read_config(vm.get()));
    if (!config || strcmp(kv_get_str(config.get(), "name", ""), name) != 0)
        return nullptr;
    return vm;
}

} // namespace

VmlibPath vmlib_join(const char *a, const char *b)
{
    VmlibPath path;
    snprintf(path.data(), path.size(), b ? "%s/%s" : "%s", a, b);
    return path;
}

struct vm *vmlib_open_vm(const struct vmlib *lib, const char *path, const char *tag)
{
    struct vm *vm = vm_openat(lib->fd(), path);
    if (vm) {
        vm_setid(vm, path);
        vm_settag(vm, tag);
    }
    return vm;
}

struct vmlib *vmlib_open(const char *path)
{
    if (!path)
        path = config_get_path("vm_lib_dir");
    if (!path) {
        dprintf(log_fd, "vmlib: vm_lib_dir no set\r\n");
        errno = ENXIO;
        return nullptr;
    }
    return new vmlib{path, DirOwner(opendir(path))};
}

void vmlib_close(struct vmlib *lib)
{
    delete lib;
}

const char *vmlib_next(struct vmlib *lib)
{
    if (!lib->dir)
        return nullptr;
    while (const dirent *entry = readdir(lib->dir.get())) {
        const char *name = entry->d_name;
        if (entry->d_type != DT_DIR || strcmp(name, ".") == 0 || strcmp(name, "..") == 0)
            continue;
        if (is_directory(lib->fd(), name) && vmlib_is_vm_dir(nullptr, lib->fd(), name))
            return name;
    }
    return nullptr;
}

void vmlib_reset(struct vmlib *lib)
{
    if (lib->dir)
        rewinddir(lib->dir.get());
}

int vmlib_is_vm_dir(const char *name, int dirfd, const char *path)
{
    const UniqueFd dir(openat(dirfd, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir)
        return 0;
    if (has_file(dir.get(), "config.yaml") || has_file(dir.get(), "localversion"))
        return 1;
    char older[255];
    snprintf(older, sizeof older, "%s.yaml", name ? name : path);
    return has_file(dir.get(), older) ? 1 : 0;
}

struct vm *vmlib_get(struct vmlib *lib, const char *id, const char *tag)
{
    if (!lib->dir || !id)
        return nullptr;
    const VmlibPath path = vmlib_join(id, tag);
    if (tag && !vmlib_is_vm_dir(id, lib->fd(), path.data()))
        return nullptr;
    return vmlib_open_vm(lib, path.data(), tag);
}

struct vm *vmlib_lookup(struct vmlib *lib, const char *id_or_name, const char *tag)
{
    if (!id_or_name || !lib->dir)
        return nullptr;
    vmlib_reset(lib);
    while (const char *id = vmlib_next(lib)) {
        if (strcasecmp(id_or_name, id) == 0)
            return vmlib_get(lib, id, tag);
        VmOwner vm = open_if_named(lib, id, id_or_name);
        if (vm)
            return tag ? vmlib_get(lib, id, tag) : vm.release();
    }
    return nullptr;
}

const char *vmlib_lookupid(struct vmlib *lib, const char *id_or_name)
{
    if (!lib->dir || !id_or_name)
        return nullptr;
    if (is_directory(lib->fd(), id_or_name))
        return id_or_name;
    vmlib_reset(lib);
    while (const char *id = vmlib_next(lib))
        if (strcasecmp(id_or_name, id) == 0 || open_if_named(lib, id, id_or_name))
            return id;
    return nullptr;
}

const char *vmlib_vm_dir(struct vmlib *lib, const char *id)
{
    thread_local VmlibPath path;
    path = vmlib_join(lib->path.c_str(), id);
    return path.data();
}
