// Local stream sockets: close-on-exec everywhere, never a SIGPIPE.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

// A new local stream socket. -1 with errno set.
int platform_socket_stream();
// Accepts a connection as a non-blocking descriptor. -1 with errno set.
int platform_accept(int listener);
// sendmsg(2) to a peer that may have gone: EPIPE, no signal.
ssize_t platform_sendmsg(int fd, const struct msghdr *message, int flags);
// recvmsg(2); descriptors that come with the message are close-on-exec.
ssize_t platform_recvmsg(int fd, struct msghdr *message, int flags);
