// Descriptors on their way between processes, beside the bytes of a message.
#pragma once

#include "platform/unique_fd.h"

#include <cstddef>
#include <span>
#include <sys/types.h>
#include <vector>

// One send that never waits; the descriptors go with the first byte and stay the caller's. As send:
// the number of bytes taken, or -1 with errno (EAGAIN without room, EPIPE and no signal when the
// peer is gone). Resumed after signals.
ssize_t descriptors_send(int fd, const void *bytes, size_t length, std::span<const int> fds);

// What one receive brought. `length` is as of recv: 0 at the end of the stream, -1 with errno.
struct DescriptorsReceived
{
    ssize_t length = -1;
    bool truncated = false; // of a packet, the bytes that had no place are lost
    bool surplus = false;   // there were more descriptors than asked for; those are closed
};

// One receive that never waits, resumed after signals. Descriptors that come with the bytes are
// appended to `fds`, close-on-exec, until it holds `room`; every other one is closed, so that a
// peer can't fill this process's table. `flags` as of recv.
DescriptorsReceived descriptors_receive(int fd, void *buffer, size_t size, int flags,
                                        std::vector<UniqueFd> &fds, size_t room);
