#include "hostlib/vm/vm.h"

#include "hostlib/utils/utils.h"
#include "hostlib/vm/line.h"
#include "hostlib/vm/owners.h"
#include "hostlib/vm/rewrite.h"
#include "platform/new_file.h"
#include "policy/owners.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

constexpr const char *VERSION_NAME = "localversion";

// The first line that is no comment; false when there is none.
bool read_tag(FILE *stream, std::string *tag)
{
    while (line_read(stream, tag) > 0)
        if (tag->front() != ';')
            return true;
    return false;
}

} // namespace

struct kv *vm_read_version(struct vm *vm)
{
    if (!vm) {
        errno = ENOENT;
        return nullptr;
    }
    const FileOwner stream = vm_open_locked(vm->dirfd, VERSION_NAME);
    if (!stream) {
        const int error = errno;
        if (error != ENOENT)
            dprintf(log_fd, "vm: failed to read localversion: %s\r\n", strerror(error));
        errno = error;
        return nullptr;
    }
    std::string tag;
    if (!read_tag(stream.get(), &tag)) {
        dprintf(log_fd, "vm: failed to read tag from the version file\r\n");
        errno = EBADF;
        return nullptr;
    }
    KvOwner version(kv_new_type(KV_MAP));
    if (version && kv_set_type(version.get(), "tag", tag.c_str(), KV_STRING) != 0)
        version.reset();
    return version.release();
}

int vm_write_version(struct vm *vm, const struct kv *version)
{
    if (!version)
        return unlinkat(vm->dirfd, VERSION_NAME, 0) == 0
                   ? platform_sync_directory_of(vm->dirfd, VERSION_NAME)
                   : -1;
    const char *text =
        kv_type(version) == KV_MAP ? kv_get_str(version, "tag", nullptr) : kv_str(version, nullptr);
    if (!text) {
        errno = EINVAL;
        return -1;
    }
    return vm_rewrite(vm->dirfd, VERSION_NAME, text) == Rewrite::done ? 0 : -1;
}
