// The display channel from the viewer's side: packets in and out, some with a descriptor. No call
// waits.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/display_protocol.h"

#include <deque>
#include <sys/types.h>
#include <vector>

// One receive of bytes and the descriptors that come with them. As recv(2); -1 with EMSGSIZE when
// there were more bytes or descriptors than places.
ssize_t receive_with_descriptors(int fd, void *buffer, size_t size, std::vector<UniqueFd> *fds);

// What the viewer sends. A supervisor that does not read leaves packets waiting here; they are
// merged so that they stay few, and a key once released is never left pressed.
class PacketSender
{
public:
    static constexpr size_t WAITING_MAX = 256;

    // The channel stays the caller's.
    explicit PacketSender(int fd) : m_fd(fd) {}

    // Sends a packet, or keeps it until flush. False with errno when the supervisor is gone.
    bool send(const display_packet &packet, UniqueFd descriptor = {});
    // Sends what waits, as far as there is room. False with errno when the supervisor is gone.
    bool flush();
    size_t waiting() const { return m_waiting.size(); }

private:
    struct Waiting
    {
        display_packet packet;
        UniqueFd descriptor;
    };
    enum class Sent
    {
        yes,
        no_room,
        failed
    };

    Sent trySend(const display_packet &packet, int descriptor) const;
    bool merge(const display_packet &packet, UniqueFd &descriptor);
    bool mayDrop(const display_packet &packet) const;
    Waiting *lastOf(uint32_t type);

    int m_fd;
    std::deque<Waiting> m_waiting;
};
