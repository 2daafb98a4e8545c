// Who is at the other end of a local socket.
#pragma once

// Whether the other end belongs to this user or to root. Both sides of every conversation ask this
// and speak with nobody else: a client because anybody may have made a socket under a name of ours
// (/tmp is open to all, and a setting can name any directory), a server because a socket's mode
// does not bind on every system. False also when the kernel can't tell.
bool peer_is_trusted(int fd);

// A watch (platform/watch.h) on the process at the other end of a connection that is still open. -1
// with errno: ESRCH when that process has gone, or can't be told from a later one of its number.
int peer_watch(int fd);
