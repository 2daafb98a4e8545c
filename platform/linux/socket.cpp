#include "platform/socket.h"

int platform_socket_stream()
{
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

int platform_accept(int listener)
{
    return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

ssize_t platform_sendmsg(int fd, const struct msghdr *message, int flags)
{
    return sendmsg(fd, message, flags | MSG_NOSIGNAL);
}

ssize_t platform_recvmsg(int fd, struct msghdr *message, int flags)
{
    return recvmsg(fd, message, flags | MSG_CMSG_CLOEXEC);
}
