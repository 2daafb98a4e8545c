#include "hostlib/vm/vmlib.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vm/img.h"
#include "hostlib/vm/vmlib_handle.h"
#include "platform/new_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <uuid/uuid.h>

namespace {

VmlibPath random_id()
{
    uuid_t uuid;
    VmlibPath text;
    uuid_generate_random(uuid);
    uuid_unparse_lower(uuid, text.data());
    return text;
}

struct vm *make_failed(const char *path, const char *what)
{
    const int error = errno;
    dprintf(log_fd, "vmlib: %s: failed to %s: %s\r\n", path, what, strerror(error));
    errno = error;
    return nullptr;
}

// Whether a text names one entry of a directory. What is removed is never the library itself, nor
// anything outside of it: "./", "a/.." and the tag ".." would lead there.
bool is_one_name(const char *text)
{
    return text && text[0] && !strchr(text, '/') && strcmp(text, ".") != 0 &&
           strcmp(text, "..") != 0;
}

// Removes what was said about a VM and what its guest said. The length of the log directory's path;
// 0 or less without one.
int delete_log(const char *id)
{
    char path[VMLIB_PATH_SIZE];
    const int length = config_get_path_r("log_dir", path, sizeof path - 1);
    if (length <= 0)
        return length;
    for (const char *end : {"log", "console.log"}) {
        snprintf(path + length, sizeof path - static_cast<size_t>(length), "/%s.%s", id, end);
        unlink(path);
    }
    return length;
}

// True when a name in a directory is known not to exist.
bool is_missing(int dirfd, const char *path)
{
    return faccessat(dirfd, path, F_OK, 0) != 0 && errno == ENOENT;
}

bool is_leftover(int libfd, const char *entry)
{
    VmlibPath path;
    snprintf(path.data(), path.size(), "%s/%s.yaml", entry, entry);
    return is_missing(libfd, path.data()) &&
           is_missing(libfd, vmlib_join(entry, "config.yaml").data());
}

} // namespace

struct vm *vmlib_create(struct vmlib *lib, const char *id, const char *tag)
{
    if (tag && !id) {
        errno = EINVAL;
        return nullptr;
    }
    const VmlibPath path = id ? vmlib_join(id, tag) : random_id();
    if (!lib->dir)
        lib->dir.reset(opendir(lib->path.c_str()));
    if (!lib->dir)
        return make_failed(lib->path.c_str(), "open");
    if (mkdirat_p(lib->fd(), path.data(), 0755) != 0 && errno != EEXIST)
        return make_failed(path.data(), "create");
    // What has just been made has its name on the disk, whatever becomes of it.
    if (platform_sync_directory_of(lib->fd(), path.data()) != 0)
        return make_failed(path.data(), "sync");
    return vmlib_open_vm(lib, path.data(), tag);
}

int vmlib_delete(struct vmlib *lib, const char *id, const char *tag)
{
    if (!is_one_name(id) || (tag && !is_one_name(tag))) {
        errno = EINVAL;
        return -1;
    }
    const VmlibPath vm_path = vmlib_join(id, tag);
    const VmlibPath path = vmlib_join(lib->path.c_str(), vm_path.data());
    int result = rmdirat(AT_FDCWD, path.data());
    // The mark of a deleted VM: what the purge finds no more use for may go.
    // The record is gone for good before anything that it named may go.
    if (result == 0)
        result = platform_sync_directory_of(AT_FDCWD, path.data());
    if (result == 0)
        img_unlink("<stb>");
    if (tag || config_get_long("delete_logs") == 0)
        return result;
    return delete_log(id);
}

// Unlike the listing, this does not know "localversion": a directory that holds only that is listed
// and yet removed.
int vmlib_purge(struct vmlib *lib)
{
    if (!lib->dir)
        return 0;
    vmlib_reset(lib);
    while (const dirent *entry = readdir(lib->dir.get())) {
        const char *name = entry->d_name;
        if (entry->d_type != DT_DIR || name[0] == '\0' || name[0] == '.')
            continue;
        if (!is_leftover(lib->fd(), name))
            continue;
        if (rmdirat(lib->fd(), name) != 0) {
            dprintf(log_fd, "vmlib: failed to remote %s: %s\r\n", name, strerror(errno));
            break;
        }
    }
    return 0;
}
