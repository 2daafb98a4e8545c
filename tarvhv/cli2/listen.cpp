#include "platform/file.h"
#include "platform/socket.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/address.h"
#include "tarvhv/cli2/peer.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Holds the lock file beside a socket while it is looked at and replaced, so that two starting
// servers never take each other's fresh socket for a stale one. The file goes with the lock.
class SocketLock
{
public:
    explicit SocketLock(const char *path) : m_path(std::string(path) + ".lock") {}
    ~SocketLock()
    {
        if (m_fd) {
            const int saved = errno;
            unlink(m_path.c_str());
            errno = saved;
        }
    }

    int take()
    {
        for (;;) {
            UniqueFd fd(platform_openat_locked(AT_FDCWD, m_path.c_str(),
                                               O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                                               FileLock::exclusive, 0600));
            if (!fd)
                return -1;
            // Its last holder may have removed the file while this lock was waited for.
            struct stat held, named;
            if (fstat(fd.get(), &held) != 0)
                return -1;
            if (stat(m_path.c_str(), &named) == 0 && named.st_ino == held.st_ino &&
                named.st_dev == held.st_dev) {
                m_fd = std::move(fd);
                return 0;
            }
        }
    }

private:
    std::string m_path;
    UniqueFd m_fd;
};

// Only a refused connection says that nobody serves a socket; any other answer comes from a live
// process, or hides whether there is one.
bool is_stale(const sockaddr_un &address)
{
    UniqueFd fd(platform_socket_stream());
    if (!fd || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return false;
    return connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 &&
           errno == ECONNREFUSED;
}

// Clears the way for a new socket. 0 when the path is free.
int remove_stale(const char *path, const sockaddr_un &address)
{
    struct stat found;
    if (lstat(path, &found) != 0)
        return errno == ENOENT ? 0 : -1;
    if (!S_ISSOCK(found.st_mode)) {
        errno = EEXIST;
        return -1;
    }
    if (!is_stale(address)) {
        errno = EADDRINUSE;
        return -1;
    }
    return unlink(path) == 0 || errno == ENOENT ? 0 : -1;
}

} // namespace

int cli2_address(const char *path, struct sockaddr_un *address)
{
    const size_t length = path ? strlen(path) : 0;
    if (length == 0 || length >= sizeof address->sun_path) {
        errno = length == 0 ? EINVAL : ENAMETOOLONG;
        return -1;
    }
    *address = {};
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, path, length + 1);
    return 0;
}

int cli2_listen(const char *path)
{
    sockaddr_un address;
    if (cli2_address(path, &address) != 0)
        return -1;
    SocketLock lock(path);
    if (lock.take() != 0 || remove_stale(path, address) != 0)
        return -1;
    UniqueFd fd(platform_socket_stream());
    if (!fd || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0 ||
        bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return -1;
    // Nobody can connect before listen, so the mode is right from the first connection on.
    if (chmod(path, 0600) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
        const int saved = errno;
        unlink(path);
        errno = saved;
        return -1;
    }
    return fd.release();
}

int cli2_accept(int listener)
{
    UniqueFd fd;
    do
        fd.reset(platform_accept(listener));
    while (!fd && (errno == EINTR || errno == ECONNABORTED));
    if (!fd)
        return -1;
    if (!peer_is_trusted(fd.get())) {
        errno = EPERM;
        return -1;
    }
    return fd.release();
}
