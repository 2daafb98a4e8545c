// Addresses of local sockets.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

// The address of the socket at a path. 0, or -1 with errno: EINVAL for none, ENAMETOOLONG for one
// that the system has no room for.
int cli2_address(const char *path, struct sockaddr_un *address);
