#include "platform/socket.h"

#include "platform/unique_fd.h"

#include <cstring>
#include <fcntl.h>

namespace {

bool set_close_on_exec(int fd)
{
    return fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
}

// No signal is asked for by the socket here, not by the call.
bool silence(int fd)
{
    const int on = 1;
    return setsockopt(fd, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) == 0;
}

void close_descriptors_on_exec(struct msghdr *message)
{
    for (struct cmsghdr *part = CMSG_FIRSTHDR(message); part != nullptr;
         part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t index = 0; index < count; index++) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(part) + index * sizeof fd, sizeof fd);
            set_close_on_exec(fd);
        }
    }
}

} // namespace

int platform_socket_stream()
{
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM, 0));
    if (!fd || !set_close_on_exec(fd.get()) || !silence(fd.get()))
        return -1;
    return fd.release();
}

int platform_accept(int listener)
{
    UniqueFd fd(accept(listener, nullptr, nullptr));
    if (!fd || !set_close_on_exec(fd.get()) || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return -1;
    // A peer that has gone already is met by the first read.
    silence(fd.get());
    return fd.release();
}

ssize_t platform_sendmsg(int fd, const struct msghdr *message, int flags)
{
    // The socket may be one that a peer passed.
    silence(fd);
    return sendmsg(fd, message, flags);
}

ssize_t platform_recvmsg(int fd, struct msghdr *message, int flags)
{
    const ssize_t count = recvmsg(fd, message, flags);
    if (count >= 0)
        close_descriptors_on_exec(message);
    return count;
}
