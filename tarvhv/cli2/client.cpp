#include "platform/socket.h"
#include "platform/unique_fd.h"
#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/address.h"
#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/io.h"
#include "tarvhv/cli2/json_end.h"
#include "tarvhv/cli2/peer.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// The socket's send time-out is what bounds a connect to a peer whose queue is full.
int connect_within(int fd, const sockaddr_un &address)
{
    const timeval limit{CLI2_SEND_SECONDS, 0};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
        return -1;
    int result;
    do
        result = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    while (result != 0 && errno == EINTR);
    if (result != 0 && errno == EAGAIN)
        errno = ETIMEDOUT;
    return result;
}

int connect_and_send(const char *path, const std::string &request)
{
    sockaddr_un address;
    if (cli2_address(path, &address) != 0)
        return -1;
    UniqueFd fd(platform_socket_stream());
    if (!fd || connect_within(fd.get(), address) != 0)
        return -1;
    if (!peer_is_trusted(fd.get())) {
        errno = ENOENT;
        return -1;
    }
    if (cli2_send(fd.get(), request.data(), request.size(), 0) != 0)
        return -1;
    return fd.release();
}

// Reads one answer and no byte beyond it, so that a connection can carry several.
class AnswerReader
{
public:
    AnswerReader(int fd, const Cli2Deadline &deadline) : m_fd(fd), m_deadline(deadline) {}

    struct json *read(std::vector<UniqueFd> *fds, size_t room)
    {
        while (m_end.state() != JsonEnd::State::done)
            if (step(fds, room) != 0)
                return nullptr;
        struct json *tree = json_parse(m_text.data(), m_text.size());
        if (!tree && errno != ENOMEM)
            errno = errno == E2BIG ? EMSGSIZE : EPROTO;
        return tree;
    }

private:
    // Looks at what has arrived, then takes the part that belongs to the answer.
    int step(std::vector<UniqueFd> *fds, size_t room)
    {
        if (cli2_wait(m_fd, POLLIN, m_deadline) != 0)
            return -1;
        char buffer[16384];
        const ssize_t seen = cli2_recv(m_fd, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        if (seen <= 0)
            return seen < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : ended(seen);
        JsonEnd ahead = m_end;
        const size_t wanted = ahead.feed(buffer, static_cast<size_t>(seen));
        const ssize_t taken = take(buffer, wanted, fds, room);
        if (taken <= 0)
            return ended(taken);
        return keep(buffer, static_cast<size_t>(taken));
    }

    int keep(const char *bytes, size_t length)
    {
        m_end.feed(bytes, length);
        if (m_end.state() == JsonEnd::State::garbage) {
            errno = EPROTO;
            return -1;
        }
        if (m_end.state() == JsonEnd::State::too_deep ||
            m_text.size() + length > CLI2_MESSAGE_MAX) {
            errno = EMSGSIZE;
            return -1;
        }
        m_text.append(bytes, length);
        return 0;
    }

    // A peer that went away with our request unread resets the connection.
    int ended(ssize_t result)
    {
        if (result == 0 || errno == ECONNRESET || errno == EPIPE)
            errno = m_end.state() == JsonEnd::State::before ? ENOTCONN : ECONNRESET;
        return -1;
    }

    ssize_t take(char *buffer, size_t length, std::vector<UniqueFd> *fds, size_t room)
    {
        std::vector<UniqueFd> none;
        return descriptors_receive(m_fd, buffer, length, 0, fds ? *fds : none, fds ? room : 0)
            .length;
    }

    int m_fd;
    Cli2Deadline m_deadline;
    JsonEnd m_end{JsonStart::object};
    std::string m_text;
};

Cli2Deadline deadline_in(const timeval &timeout)
{
    if (timeout.tv_sec == 0 && timeout.tv_usec == 0)
        return std::nullopt;
    return Cli2Clock::now() + std::chrono::seconds(timeout.tv_sec) +
           std::chrono::microseconds(timeout.tv_usec);
}

} // namespace

int cli2_connect(const char *path, const char *command)
{
    return connect_and_send(path, command ? std::string(command) + "\r\n" : std::string());
}

int cli2_connect_json(const char *path, const char *command, const struct json *tree)
{
    return connect_and_send(path, std::string(command) + "\r\n" + json_print(tree));
}

struct json *cli2_recv_json(int fd)
{
    return AnswerReader(fd, std::nullopt).read(nullptr, 0);
}

struct json *cli2_recv_json_to(int fd, struct timeval timeout)
{
    return AnswerReader(fd, deadline_in(timeout)).read(nullptr, 0);
}

struct json *cli2_recv_json_fds(int fd, struct timeval timeout, int *fds, size_t *count)
{
    std::vector<UniqueFd> received;
    struct json *tree = AnswerReader(fd, deadline_in(timeout)).read(&received, *count);
    *count = 0;
    if (tree)
        for (UniqueFd &each : received)
            fds[(*count)++] = each.release();
    return tree;
}
