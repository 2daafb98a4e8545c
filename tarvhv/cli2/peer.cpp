#include "tarvhv/cli2/peer.h"

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "platform/watch.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

bool peer_is_trusted(int fd)
{
    uid_t uid;
    return platform_peer_uid(fd, &uid) == 0 && (uid == geteuid() || uid == 0);
}

int peer_watch(int fd)
{
    const pid_t pid = platform_peer_pid(fd);
    if (pid <= 0) {
        errno = ESRCH;
        return -1;
    }
    UniqueFd watch(platform_watch_process(pid));
    if (!watch)
        return -1;
    // The pid is that of the process that made the listening socket. It may have ended and left its
    // number to another before it was watched; then its end of the connection is closed by now. So
    // the connection is looked at after the watch was made, never before.
    pollfd hung_up{fd, 0, 0};
    if (poll(&hung_up, 1, 0) != 0) {
        errno = ESRCH;
        return -1;
    }
    return watch.release();
}
