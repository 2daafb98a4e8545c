#include "tests/tarvhv/display/FakeSupervisor.h"

#include "tarvhv/cli2/io.h"
#include "tests/tarvhv/display/memory_screen.h"

#include <cstring>
#include <poll.h>

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
    cli2_send_fds(m_connection.get(), bytes.data(), bytes.size(), 0, descriptors.data(),
                  descriptors.size());
}

void FakeSupervisor::answer(int width, int height)
{
    m_width = size_t(width);
    const display_fbctl control = screen_control(uint32_t(width), uint32_t(height));
    const SealedMemory screen = platform_memory_shared(
        "test screen", screen_size(control.width, control.height), &m_screen);
    std::memcpy(m_screen.bytes(), &control, sizeof control);
    answerRaw(R"({"status":"OK","body":{"uuid":"0f0e","name":"fake","index":2,"total":3,)"
              R"("width":64,"height":32,"hdpi":false,"live_resize":true,"caps":12,)"
              R"("absolute":true}})"
              "\r\n",
              {screen.fd.get(), m_channel.far.get()});
    m_channel.far.reset();
}

void FakeSupervisor::setPixel(int x, int y, uint32_t colour)
{
    std::memcpy(m_screen.bytes() + DISPLAY_PIXELS_OFFSET + (size_t(y) * m_width + size_t(x)) * 4,
                &colour, sizeof colour);
}

void FakeSupervisor::send(uint32_t type, std::initializer_list<int32_t> arguments,
                          UniqueFd descriptor)
{
    const display_packet packet = display_packet_of(type, arguments);
    const int fd = descriptor.get();
    cli2_send_fds(channel(), &packet, sizeof packet, MSG_DONTWAIT, &fd, descriptor ? 1 : 0);
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
