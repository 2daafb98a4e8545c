#include "tarvhv/display/packet_socket.h"

#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/input_packets.h"
#include "tarvhv/cli2/io.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

namespace {

constexpr size_t DESCRIPTOR_PLACES = 4;

// A later packet of these types says all that an earlier one said.
bool replaces_earlier(uint32_t type)
{
    return type == DISPLAY_DAMAGE_DONE || type == DISPLAY_ACTIVE || type == DISPLAY_RESIZE ||
           type == DISPLAY_PASTEBOARD_ASK || type == DISPLAY_PASTEBOARD_SEND;
}

} // namespace

ssize_t receive_with_descriptors(int fd, void *buffer, size_t size, std::vector<UniqueFd> *fds)
{
    const size_t before = fds->size();
    const auto receive = [&] {
        return descriptors_receive(fd, buffer, size, 0, *fds, before + DESCRIPTOR_PLACES);
    };
    DescriptorsReceived received = receive();
    // A peer that closed with packets of ours unread resets the connection. That is told once, and
    // before the last that the peer had sent: its reason to close, for one.
    if (received.length < 0 && errno == ECONNRESET)
        received = receive();
    if (received.length < 0 || !(received.truncated || received.surplus))
        return received.length;
    errno = EMSGSIZE;
    return -1;
}

bool PacketSender::send(const display_packet &packet, UniqueFd descriptor)
{
    if (m_waiting.empty()) {
        const Sent sent = trySend(packet, descriptor.get());
        if (sent != Sent::no_room)
            return sent == Sent::yes;
    }
    if (!merge(packet, descriptor) && !mayDrop(packet))
        m_waiting.push_back({packet, std::move(descriptor)});
    return true;
}

bool PacketSender::flush()
{
    while (!m_waiting.empty()) {
        const Waiting &next = m_waiting.front();
        const Sent sent = trySend(next.packet, next.descriptor.get());
        if (sent != Sent::yes)
            return sent == Sent::no_room;
        m_waiting.pop_front();
    }
    return true;
}

PacketSender::Sent PacketSender::trySend(const display_packet &packet, int descriptor) const
{
    if (cli2_send_fds(m_fd, &packet, sizeof packet, MSG_DONTWAIT, &descriptor,
                      descriptor >= 0 ? 1 : 0) == 0)
        return Sent::yes;
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS ? Sent::no_room
                                                                       : Sent::failed;
}

PacketSender::Waiting *PacketSender::lastOf(uint32_t type)
{
    const auto found =
        std::find_if(m_waiting.rbegin(), m_waiting.rend(),
                     [type](const Waiting &each) { return each.packet.type == type; });
    return found == m_waiting.rend() ? nullptr : &*found;
}

// Whether the packet became part of one that waits. Input keeps its order: a pointer packet only
// joins the last packet, unless there are too many.
bool PacketSender::merge(const display_packet &packet, UniqueFd &descriptor)
{
    const bool crowded = m_waiting.size() >= WAITING_MAX;
    if (replaces_earlier(packet.type)) {
        Waiting *earlier = lastOf(packet.type);
        if (earlier) {
            earlier->packet = packet;
            earlier->descriptor = std::move(descriptor);
        }
        return earlier != nullptr;
    }
    if (!input_packet_moves(packet))
        return false;
    Waiting *last = crowded ? lastOf(packet.type) : m_waiting.empty() ? nullptr : &m_waiting.back();
    if (!last)
        return false;
    if (crowded && packet.type != DISPLAY_WHEEL)
        last->packet.arg[2] = packet.arg[2]; // the buttons: a click in between is left out
    return input_packet_join(&last->packet, packet);
}

// With too many waiting, key presses are left out, and releases of keys that are up by then. All
// else was merged and stays few.
bool PacketSender::mayDrop(const display_packet &packet) const
{
    if (m_waiting.size() < WAITING_MAX || packet.type != DISPLAY_KEY)
        return false;
    if (packet.arg[1] != 0)
        return true;
    const auto last = std::find_if(m_waiting.rbegin(), m_waiting.rend(), [&](const Waiting &each) {
        return each.packet.type == DISPLAY_KEY && each.packet.arg[0] == packet.arg[0];
    });
    return last != m_waiting.rend() && last->packet.arg[1] == 0;
}
