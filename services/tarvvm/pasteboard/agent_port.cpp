#include "services/tarvvm/pasteboard/agent_port.h"

#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

constexpr size_t READ_SIZE = 64 * 1024;
constexpr int CHUNKS_PER_TURN = 32;
constexpr int DRAIN_READS_MAX = 64; // more than a socket holds
constexpr uint64_t DEAF_MS = 5000;

void drain(int fd)
{
    char waste[READ_SIZE];
    for (int i = 0; fd >= 0 && i < DRAIN_READS_MAX; i++)
        if (recv(fd, waste, sizeof waste, MSG_DONTWAIT) <= 0)
            return;
}

} // namespace

AgentPort::AgentPort(sd_event *loop, UniqueFd socket, UniqueFd unread, AgentListener &listener,
                     Log log)
    : m_loop(loop),
      m_socket(std::move(socket)),
      m_unread(std::move(unread)),
      m_log(std::move(log)),
      m_link(listener)
{
    m_source =
        event_io(loop, m_socket.get(), EPOLLIN, [this](uint32_t events) { onReady(events); });
}

void AgentPort::onReady(uint32_t events)
{
    if ((events & ~uint32_t{EPOLLOUT}) != 0)
        receive();
    flush();
}

void AgentPort::receive()
{
    char bytes[READ_SIZE];
    const ssize_t length = recv(m_socket.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (length <= 0) {
        hangUp();
        return;
    }
    m_received += uint64_t(length);
    if (!m_deaf && !m_link.feed({bytes, size_t(length)}))
        giveUp(m_link.what());
}

void AgentPort::flush()
{
    if (!m_socket)
        return;
    bool room = true;
    for (int i = 0; i < CHUNKS_PER_TURN && room; i++) {
        if (m_out.empty() && !m_link.next(&m_out))
            break;
        const ssize_t sent =
            send(m_socket.get(), m_out.data(), m_out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0)
            m_out.erase(0, size_t(sent));
        room = sent > 0 && m_out.empty();
    }
    // A peer that is gone is met when its end of stream is read.
    const bool more = !m_out.empty() || m_link.hasOutput();
    sd_event_source_set_io_events(m_source.get(), EPOLLIN | (more ? uint32_t{EPOLLOUT} : 0u));
}

// A guest's program may close the port at any point, with bytes of ours unread in QEMU's end of the
// socket and bytes of its own half sent in this one. Neither side marks where messages begin, so on
// a close both are thrown away with what this side knew of the agent: the next one would take the
// middle of a message for a start, and so would this decoder. Contents that were promised go with
// them. On an opening this side asks first, unless it hears an agent already: QEMU may have told of
// a close and an opening within a second as nothing at all.
void AgentPort::setOpen(bool open)
{
    if (!m_socket)
        return;
    if (!open) {
        drain(m_socket.get());
        drain(m_unread.get());
        m_out.clear();
        m_deaf = false;
        m_retry.reset();
        m_link.reset();
    } else if (m_deaf || m_link.inside() || !m_link.known()) {
        startAnew();
    }
    flush();
}

// The end of the garbage can't be seen in it. After a while it is as likely over as not, and an
// agent answers when it is asked who it is.
void AgentPort::giveUp(const char *why)
{
    m_log(std::string("the guest's agent sends ") + why + ": not listened to for a while");
    m_deaf = true;
    m_out.clear();
    m_link.reset();
    m_retry = event_timer(m_loop, DEAF_MS, [this] {
        startAnew();
        flush();
    });
}

void AgentPort::startAnew()
{
    m_deaf = false;
    m_retry.reset();
    m_out.clear();
    m_link.reset();
    m_link.announce();
}

void AgentPort::hangUp()
{
    m_source.reset();
    m_retry.reset();
    m_socket.reset();
    m_link.reset();
}
