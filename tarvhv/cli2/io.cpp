#include "tarvhv/cli2/io.h"

#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/socket.h>

namespace {

int milliseconds_left(const Cli2Deadline &deadline)
{
    if (!deadline)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Cli2Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

} // namespace

int cli2_wait(int fd, short events, const Cli2Deadline &deadline)
{
    for (;;) {
        pollfd wanted{fd, events, 0};
        const int ready = poll(&wanted, 1, milliseconds_left(deadline));
        if (ready > 0)
            return 0;
        if (ready == 0) {
            errno = ETIMEDOUT;
            return -1;
        }
        if (errno != EINTR)
            return -1;
    }
}

int cli2_send_fds(int fd, const void *bytes, size_t length, int flags, const int *fds, size_t count)
{
    const Cli2Deadline deadline = Cli2Clock::now() + std::chrono::seconds(CLI2_SEND_SECONDS);
    const char *next = static_cast<const char *>(bytes);
    while (length > 0) {
        const ssize_t sent = descriptors_send(fd, next, length, {fds, count});
        if (sent >= 0) {
            next += sent;
            length -= static_cast<size_t>(sent);
            count = 0;
        } else if ((errno != EAGAIN && errno != EWOULDBLOCK) || (flags & MSG_DONTWAIT) ||
                   cli2_wait(fd, POLLOUT, deadline) != 0) {
            return -1;
        }
    }
    return 0;
}

int cli2_send(int fd, const void *bytes, size_t length, int flags)
{
    return cli2_send_fds(fd, bytes, length, flags, nullptr, 0);
}

ssize_t cli2_recv(int fd, void *buffer, size_t size, int flags)
{
    ssize_t received;
    do
        received = recv(fd, buffer, size, flags);
    while (received < 0 && errno == EINTR);
    return received;
}

int cli2_send_json(int fd, const struct json *tree)
{
    const std::string text = json_print(tree);
    return cli2_send(fd, text.data(), text.size(), 0);
}
