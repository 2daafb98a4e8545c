#include "tests/display/FakeSupervisor.h"

#include "platform/socket.h"
#include "tests/display/memory_screen.h"

#include <cstring>
#include <poll.h>

namespace {

// The descriptors go with the first byte.
void send_all(int fd, const void *bytes, size_t length, const std::vector<int> &descriptors)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * 8)] = {};
    iovec part{const_cast<void *>(bytes), length};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        const size_t size = descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        *header = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(header), descriptors.data(), size);
    }
    platform_sendmsg(fd, &message, 0);
}

} // namespace

bool FakeSupervisor::asked() const
{
    pollfd entry{m_listener.get(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

void FakeSupervisor::answerRaw(const std::string &bytes, const std::vector<int> &descriptors)
{
    pollfd viewer{m_listener.get(), POLLIN, 0};
    poll(&viewer, 1, 20000);
    m_connection.reset(cli2_accept(m_listener.get()));
    pollfd entry{m_connection.get(), POLLIN, 0};
    if (bytes.find("OK") != std::string::npos)
        poll(&entry, 1, 20000);
    char buffer[256];
    const ssize_t got = recv(m_connection.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    request.assign(buffer, size_t(std::max<ssize_t>(got, 0)));
    send_all(m_connection.get(), bytes.data(), bytes.size(), descriptors);
}

void FakeSupervisor::answer(int width, int height)
{
    m_width = width;
    m_screen = screen_memory(uint32_t(width), uint32_t(height));
    const UniqueFd screen(platform_memory_read_only(m_screen.get()));
    answerRaw(R"({"status":"OK","body":{"uuid":"0f0e","name":"fake","index":2,"total":3,)"
              R"("width":64,"height":32,"hdpi":false,"live_resize":true,"caps":12,)"
              R"("absolute":true}})"
              "\r\n",
              {screen.get(), m_channel.far.get()});
    m_channel.far.reset();
}

void FakeSupervisor::setPixel(int x, int y, uint32_t colour)
{
    (void)!pwrite(m_screen.get(), &colour, sizeof colour,
                  off_t(DISPLAY_PIXELS_OFFSET) + (off_t(y) * m_width + x) * 4);
}

void FakeSupervisor::send(uint32_t type, std::initializer_list<int32_t> arguments,
                          UniqueFd descriptor)
{
    display_packet packet{};
    packet.type = type;
    std::copy(arguments.begin(), arguments.end(), packet.arg);
    send_all(channel(), &packet, sizeof packet,
             descriptor ? std::vector<int>{descriptor.get()} : std::vector<int>{});
}

void FakeSupervisor::hangUp()
{
    m_connection.reset();
    m_channel.near.reset();
}

std::vector<display_packet> FakeSupervisor::received(uint32_t type)
{
    display_packet packet;
    while (recv(channel(), &packet, sizeof packet, MSG_DONTWAIT) == ssize_t(sizeof packet))
        m_received.push_back(packet);
    std::vector<display_packet> found;
    std::copy_if(m_received.begin(), m_received.end(), std::back_inserter(found),
                 [type](const display_packet &each) { return each.type == type; });
    return found;
}
