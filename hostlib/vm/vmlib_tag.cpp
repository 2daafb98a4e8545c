#include "hostlib/vm/vmlib.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/vmlib_handle.h"
#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

namespace {

// The enumeration in progress on this thread.
thread_local DirOwner tag_dir;

} // namespace

const char *vmlib_tag_first(struct vmlib *lib, const char *id)
{
    tag_dir.reset();
    if (!lib->dir)
        return nullptr;
    UniqueFd fd(openat(lib->fd(), id, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd)
        tag_dir.reset(fdopendir(fd.get()));
    if (!tag_dir) {
        const int error = errno;
        dprintf(log_fd, "vmlib: %s: failed to open: %s\r\n", id, strerror(error));
        errno = error;
        return nullptr;
    }
    fd.release();
    return vmlib_tag_next(lib, id);
}

const char *vmlib_tag_next(struct vmlib *, const char *id)
{
    if (!tag_dir)
        return nullptr;
    while (const dirent *entry = readdir(tag_dir.get())) {
        const char *name = entry->d_name;
        if (entry->d_type == DT_DIR && name[0] != '\0' && name[0] != '.' &&
            vmlib_is_vm_dir(id, dirfd(tag_dir.get()), name))
            return name;
    }
    tag_dir.reset();
    return nullptr;
}
