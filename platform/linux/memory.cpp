#include "platform/memory.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Neither the size nor these seals change any more, and nobody writes but through a mapping that is
// there already. (F_SEAL_WRITE forbids even that; before Linux 6.7 it also keeps whoever holds a
// descriptor that can write from mapping the memory to read it.)
constexpr int SEALS = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;

bool write_all(int fd, std::string_view bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t written =
            pwrite(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (written < 0 && errno != EINTR)
            return false;
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
    return true;
}

} // namespace

SealedMemory platform_memory_of(const char *name, std::string_view bytes)
{
    UniqueFd fd(memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd || !write_all(fd.get(), bytes) || fcntl(fd.get(), F_ADD_SEALS, SEALS) != 0)
        return {};
    return {std::move(fd), bytes.size()};
}

SealedMemory platform_memory_shared(const char *name, size_t size, MappedMemory *writer)
{
    UniqueFd fd(memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd || ftruncate(fd.get(), static_cast<off_t>(size)) != 0)
        return {};
    MappedMemory mapping(fd.get(), size, Mapping::writable);
    if (!mapping || fcntl(fd.get(), F_ADD_SEALS, SEALS) != 0)
        return {};
    *writer = std::move(mapping);
    return {std::move(fd), size};
}

int64_t platform_memory_size(int fd, bool sealed)
{
    // Only a memory file has seals to ask for; any other descriptor fails here.
    const int seals = fcntl(fd, F_GET_SEALS);
    struct stat status;
    if (seals < 0 || (sealed && (seals & F_SEAL_SHRINK) == 0)) {
        errno = EPERM;
        return -1;
    }
    return fstat(fd, &status) == 0 ? int64_t(status.st_size) : -1;
}
