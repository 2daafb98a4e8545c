#include "tarvhv/display/handshake.h"

#include "platform/socket.h"
#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/address.h"
#include "tarvhv/cli2/peer.h"
#include "tarvhv/display/packet_socket.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>

namespace {

using JsonTree = std::unique_ptr<struct json, decltype(&json_delete)>;

std::string without_index(const std::string &path)
{
    const size_t colon = path.rfind(':');
    if (colon == std::string::npos || colon + 1 == path.size() ||
        path.find_first_not_of("0123456789", colon + 1) != std::string::npos)
        return path;
    return path.substr(0, colon);
}

bool is_packet_socket(int fd)
{
    int type = 0;
    socklen_t size = sizeof type;
    return getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_SEQPACKET;
}

} // namespace

DisplayHandshake::DisplayHandshake(const std::string &path, unsigned index)
    : m_path(without_index(path)), m_index(index)
{
    m_request = "display\r\n{\"index\":" + std::to_string(index) + "}";
}

DisplayHandshake::Step DisplayHandshake::advance()
{
    if (m_error != 0)
        return Step::failed;
    if (!m_socket)
        return connectNow();
    return m_request.empty() ? receiveNow() : sendNow();
}

std::optional<ScreenAnswer> DisplayHandshake::take()
{
    return std::exchange(m_screen, std::nullopt);
}

DisplayHandshake::Step DisplayHandshake::connectNow()
{
    sockaddr_un address;
    if (cli2_address(m_path.c_str(), &address) != 0)
        return fail(errno);
    UniqueFd fd(platform_socket_stream());
    if (!fd || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return fail(errno);
    // A local connect is done at once, or can't be done now: the peer's queue is full.
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return errno == EAGAIN || errno == EINTR ? Step::retry : fail(errno);
    if (!peer_is_trusted(fd.get()))
        return fail(ENOENT);
    m_socket = std::move(fd);
    return sendNow();
}

DisplayHandshake::Step DisplayHandshake::sendNow()
{
    while (!m_request.empty()) {
        iovec part{m_request.data(), m_request.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const ssize_t sent = platform_sendmsg(m_socket.get(), &message, MSG_DONTWAIT);
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return Step::writing;
        if (sent < 0 && errno != EINTR)
            return fail(errno);
        if (sent > 0)
            m_request.erase(0, size_t(sent));
    }
    return receiveNow();
}

DisplayHandshake::Step DisplayHandshake::receiveNow()
{
    char buffer[4096];
    while (m_end.state() != JsonEnd::State::done) {
        const ssize_t got =
            receive_with_descriptors(m_socket.get(), buffer, sizeof buffer, &m_descriptors);
        if (got < 0)
            return errno == EAGAIN || errno == EWOULDBLOCK ? Step::reading : fail(errno);
        if (got == 0)
            return fail(m_answer.empty() ? ENOTCONN : ECONNRESET);
        m_answer.append(buffer, m_end.feed(buffer, size_t(got)));
        if (m_end.state() == JsonEnd::State::garbage || m_descriptors.size() > 2)
            return fail(EPROTO);
        if (m_end.state() == JsonEnd::State::too_deep || m_answer.size() > CLI2_MESSAGE_MAX)
            return fail(EMSGSIZE);
    }
    return parse();
}

DisplayHandshake::Step DisplayHandshake::parse()
{
    const JsonTree tree(json_parse(m_answer.data(), m_answer.size()), json_delete);
    if (!tree)
        return fail(EPROTO);
    if (std::string(json_find_str(tree.get(), "status", "")) != "OK")
        return fail(ENODEV);
    if (m_descriptors.size() != 2 || !is_packet_socket(m_descriptors[1].get()))
        return fail(EPROTO);
    std::optional<MappedFrame> buffer = MappedFrame::map(m_descriptors[0].get());
    if (!buffer)
        return fail(errno);
    const auto flag = [&](const char *path) { return json_find_bool(tree.get(), path, false); };
    const auto number = [&](const char *path, int64_t missing) {
        return unsigned(json_find_int64(tree.get(), path, missing));
    };
    m_screen =
        ScreenAnswer{json_find_str(tree.get(), "body.uuid", ""),
                     json_find_str(tree.get(), "body.name", ""),
                     number("body.index", m_index),
                     number("body.total", 1),
                     DisplayState(std::move(*buffer), flag("body.hdpi"), flag("body.live_resize"),
                                  number("body.caps", 0), flag("body.absolute")),
                     std::move(m_descriptors[1])};
    m_descriptors.clear();
    m_socket.reset();
    return Step::done;
}

DisplayHandshake::Step DisplayHandshake::fail(int error)
{
    m_error = error == 0 ? EIO : error;
    m_socket.reset();
    m_descriptors.clear();
    return Step::failed;
}
