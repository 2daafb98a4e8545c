#include "tarvhv/cli2/descriptors.h"

#include "platform/socket.h"

#include <cerrno>
#include <cstring>

namespace {

// No message between our programs carries more; the kernel itself takes up to 253.
constexpr size_t DESCRIPTORS_MAX = 8;

// Room for the control part of one message. An array of structs, so that it is aligned.
union Control
{
    cmsghdr header;
    char bytes[CMSG_SPACE(DESCRIPTORS_MAX * sizeof(int))];
};

msghdr message_of(iovec &part)
{
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return message;
}

// Takes every descriptor of a message over, whoever keeps it then.
std::vector<UniqueFd> descriptors_of(msghdr &message)
{
    std::vector<UniqueFd> fds;
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
            fds.emplace_back(fd);
        }
    }
    return fds;
}

} // namespace

ssize_t descriptors_send(int fd, const void *bytes, size_t length, std::span<const int> fds)
{
    if (fds.size() > DESCRIPTORS_MAX) {
        errno = EINVAL;
        return -1;
    }
    iovec part{const_cast<void *>(bytes), length};
    msghdr message = message_of(part);
    Control control{};
    if (!fds.empty()) {
        message.msg_control = control.bytes;
        message.msg_controllen = CMSG_SPACE(fds.size_bytes());
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(fds.size_bytes());
        std::memcpy(CMSG_DATA(header), fds.data(), fds.size_bytes());
    }
    ssize_t sent;
    do
        sent = platform_sendmsg(fd, &message, MSG_DONTWAIT);
    while (sent < 0 && errno == EINTR);
    return sent;
}

DescriptorsReceived descriptors_receive(int fd, void *buffer, size_t size, int flags,
                                        std::vector<UniqueFd> &fds, size_t room)
{
    iovec part{buffer, size};
    Control control{};
    DescriptorsReceived received;
    msghdr message;
    // The system writes how much control there was over how much room there is: each try begins
    // anew. There is always room, also where no descriptor is wanted: a message that brings one
    // then says so, and it is closed here.
    do {
        message = message_of(part);
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof control.bytes;
        received.length = platform_recvmsg(fd, &message, flags | MSG_DONTWAIT);
    } while (received.length < 0 && errno == EINTR);
    if (received.length < 0)
        return received;
    received.truncated = (message.msg_flags & MSG_TRUNC) != 0;
    received.surplus = (message.msg_flags & MSG_CTRUNC) != 0;
    for (UniqueFd &each : descriptors_of(message))
        if (fds.size() < room)
            fds.push_back(std::move(each));
        else
            received.surplus = true;
    return received;
}
