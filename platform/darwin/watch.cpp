#include "platform/watch.h"

#include "platform/process.h"
#include "platform/unique_fd.h"

#include <csignal>
#include <map>
#include <mutex>
#include <sys/event.h>
#include <sys/time.h>

namespace {

struct Watched
{
    pid_t pid;
    uint64_t identity;
};

// The processes behind the descriptors. A closed one's entry goes when its number is used again.
std::mutex watches_mutex;
std::map<int, Watched> &watches()
{
    static auto *entries = new std::map<int, Watched>;
    return *entries;
}

} // namespace

int platform_watch_process(pid_t pid)
{
    const Watched watched{pid, platform_process_identity(pid)};
    UniqueFd queue(kqueue());
    if (!queue || fcntl(queue.get(), F_SETFD, FD_CLOEXEC) != 0)
        return -1;
    struct kevent change;
    EV_SET(&change, uintptr_t(pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
    if (kevent(queue.get(), &change, 1, nullptr, 0, nullptr) != 0)
        return -1;
    const std::lock_guard lock(watches_mutex);
    watches()[queue.get()] = watched;
    return queue.release();
}

int platform_watch_signal(int watch, int signal_number)
{
    Watched watched;
    {
        const std::lock_guard lock(watches_mutex);
        const auto entry = watches().find(watch);
        if (entry == watches().end()) {
            errno = EBADF;
            return -1;
        }
        watched = entry->second;
    }
    // A later process of this number started at another time.
    if (watched.identity == 0 || platform_process_identity(watched.pid) != watched.identity) {
        errno = ESRCH;
        return -1;
    }
    return kill(watched.pid, signal_number);
}

// A signal carries no number here.
int platform_watch_queue(int watch, int signal_number, int)
{
    return platform_watch_signal(watch, signal_number);
}
