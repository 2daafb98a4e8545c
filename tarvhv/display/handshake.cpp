#include "tarvhv/display/handshake.h"

#include "policy/json.h"

#include <cerrno>
#include <sys/socket.h>

namespace {

// The frame buffer and the channel.
constexpr size_t DESCRIPTORS = 2;

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

DisplayHandshake::DisplayHandshake(const std::string &path, unsigned index,
                                   std::chrono::milliseconds patience)
    : m_index(index),
      m_exchange(without_index(path),
                 exchange_request("display", "{\"index\":" + std::to_string(index) + "}"), patience,
                 DESCRIPTORS)
{
}

DisplayHandshake::Step DisplayHandshake::advance()
{
    if (m_error != 0 || m_screen)
        return m_error != 0 ? Step::failed : Step::done;
    const Step step = m_exchange.advance();
    if (step == Step::failed)
        m_error = m_exchange.error();
    else if (step == Step::done)
        m_error = readScreen();
    return m_error != 0 ? Step::failed : step;
}

std::optional<ScreenAnswer> DisplayHandshake::take()
{
    return std::exchange(m_screen, std::nullopt);
}

int DisplayHandshake::readScreen()
{
    const JsonOwner tree = m_exchange.takeAnswer();
    std::vector<UniqueFd> descriptors = m_exchange.takeDescriptors();
    if (std::string(json_find_str(tree.get(), "status", "")) != "OK")
        return ENODEV;
    if (m_exchange.hadSurplusDescriptors())
        return EMSGSIZE;
    if (descriptors.size() != DESCRIPTORS || !is_packet_socket(descriptors[1].get()))
        return EPROTO;
    std::optional<MappedFrame> buffer = MappedFrame::map(descriptors[0].get());
    if (!buffer)
        return errno;
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
                     std::move(descriptors[1])};
    return 0;
}
