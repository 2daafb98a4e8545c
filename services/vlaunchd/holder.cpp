#include "services/vlaunchd/holder.h"

#include "platform/file.h"
#include "platform/process.h"
#include "platform/watch.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *NAME = ".service";
constexpr useconds_t STEP_US = 20'000;

UniqueFd try_lock(int directory, const char *path)
{
    return UniqueFd(platform_openat_locked(
        directory, path, O_RDWR | O_CREAT | O_NONBLOCK | O_NOFOLLOW, FileLock::exclusive, 0600));
}

} // namespace

std::string records_path(const std::string &socket_path)
{
    return socket_path + ".jobs";
}

UniqueFd hold_records(int directory, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    UniqueFd lock;
    while (!(lock = try_lock(directory, NAME))) {
        if (errno != EWOULDBLOCK && errno != EINTR)
            return {};
        if (std::chrono::steady_clock::now() > deadline) {
            errno = EBUSY;
            return {};
        }
        usleep(STEP_US);
    }
    if (ftruncate(lock.get(), 0) != 0 ||
        dprintf(lock.get(), "%d %" PRIu64 "\n", getpid(), platform_process_identity(getpid())) < 0)
        return {};
    return lock;
}

UniqueFd watch_holder(const std::string &records, pid_t *pid)
{
    const std::string path = records + "/" + NAME;
    errno = ESRCH;
    if (access(path.c_str(), F_OK) != 0 || try_lock(AT_FDCWD, path.c_str()))
        return {};
    char text[64] = {};
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    uint64_t identity = 0;
    *pid = 0;
    if (!file || read(file.get(), text, sizeof text - 1) <= 0 ||
        sscanf(text, "%d %" SCNu64, pid, &identity) != 2 || *pid <= 0) {
        errno = ESRCH;
        return {};
    }
    // Watched first, compared then: what is compared is what is watched.
    UniqueFd watch(platform_watch_process(*pid));
    if (watch && platform_process_identity(*pid) != identity) {
        watch.reset();
        errno = ESRCH;
    }
    return watch;
}
