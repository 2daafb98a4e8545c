// Sending and waiting on the sockets of the services: signals resumed, every wait with an end.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

// How long a peer may leave no room for bytes sent to it, or no place in its queue of connections.
inline constexpr int CLI2_SEND_SECONDS = 5;

using Cli2Clock = std::chrono::steady_clock;
using Cli2Deadline = std::optional<Cli2Clock::time_point>; // none: no limit

// Waits until poll(2) reports any of `events`. 0, or -1 with errno: ETIMEDOUT after the deadline.
int cli2_wait(int fd, short events, const Cli2Deadline &deadline);
// Sends all bytes; the descriptors go with the first of them. As cli2_send.
int cli2_send_fds(int fd, const void *bytes, size_t length, int flags, const int *fds,
                  size_t count);
