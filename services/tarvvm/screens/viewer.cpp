#include "services/tarvvm/screens/viewer.h"

#include "tarvhv/cli2/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

// A mouse sends a thousand packets a second at most. What is past these is an attack or a fault.
constexpr double PACKETS_PER_SECOND = 4000;
constexpr double PACKETS_AT_ONCE = 8000;
constexpr int PACKETS_PER_TURN = 64;
// Room for a few packets only: each may hold a frame buffer that the viewer has yet to take.
constexpr int SEND_BUFFER = 4096;
// Bytes of a pasteboard that cost as much as a packet.
constexpr double PASTEBOARD_RATE = 64 * 1024;

// Receives one packet and the first descriptor that came with it; others are closed.
ssize_t receive_packet(int fd, display_packet *packet, UniqueFd *descriptor)
{
    std::vector<UniqueFd> descriptors;
    const DescriptorsReceived received =
        descriptors_receive(fd, packet, sizeof *packet, 0, descriptors, 1);
    if (!descriptors.empty())
        *descriptor = std::move(descriptors.front());
    return received.truncated ? ssize_t(sizeof *packet) + 1 : received.length;
}

} // namespace

Viewer::Viewer(sd_event *loop, UniqueFd channel, std::shared_ptr<SharedFrame> frame,
               ViewerHost &host, GuestInput &guest, InputGate &gate, GuestPasteboard &pasteboard)
    : m_host(host),
      m_pasteboard(pasteboard),
      m_channel(std::move(channel)),
      m_frame(std::move(frame)),
      m_damage(m_frame->width(), m_frame->height()),
      m_input(guest, gate, [this] { listen(); }),
      m_packets(PACKETS_PER_SECOND, PACKETS_AT_ONCE)
{
    setsockopt(m_channel.get(), SOL_SOCKET, SO_SNDBUF, &SEND_BUFFER, sizeof SEND_BUFFER);
    m_source =
        event_io(loop, m_channel.get(), EPOLLIN, [this](uint32_t events) { onReady(events); });
    m_pasteboard.add(this);
}

Viewer::~Viewer()
{
    m_pasteboard.remove(this);
}

void Viewer::setFrame(std::shared_ptr<SharedFrame> frame, ScreenMode mode)
{
    m_frame = std::move(frame);
    m_mode = mode;
    m_mode_due = true;
    // All of a new frame counts as damaged. Damage of the old one stays without its end, and
    // without its answer, if the viewer takes the mode first.
    m_damage.reset(m_frame->width(), m_frame->height());
    beginSerial();
    flush();
}

void Viewer::addDamage(const Damage &damage)
{
    m_damage.add(damage);
    flush();
}

void Viewer::setCursor(std::shared_ptr<const SealedMemory> memory, const CursorImage &image)
{
    m_cursor_memory = std::move(memory);
    m_cursor = {DISPLAY_CURSOR,
                {int32_t(image.width), int32_t(image.height), image.hot_x, image.hot_y}};
    m_cursor_due = true;
    flush();
}

void Viewer::setAbsolute(bool absolute)
{
    m_absolute = absolute;
    m_pointer_due = true;
    flush();
}

void Viewer::pasteboardCapsChanged(uint32_t caps)
{
    m_caps = caps;
    m_caps_due = true;
    flush();
}

void Viewer::pasteboardArrived(std::shared_ptr<const SealedMemory> archive)
{
    m_archive = std::move(archive);
    flush();
}

void Viewer::close(display_close_reason reason)
{
    if (gone())
        return;
    send({DISPLAY_CLOSED, {reason}});
    hangUp();
}

void Viewer::hangUp()
{
    if (gone())
        return;
    m_source.reset();
    m_channel.reset();
    m_archive.reset();
    m_input.releaseAll();
    m_host.viewerGone();
}

void Viewer::onReady(uint32_t events)
{
    if (events & EPOLLOUT)
        flush();
    if (gone() || (events & ~uint32_t{EPOLLOUT}) == 0)
        return;
    if (!m_input.full())
        receive();
    else if (events & (EPOLLHUP | EPOLLERR))
        hangUp(); // it is not read for its input's sake, and this is told all the same
    listen();
}

bool Viewer::withinRate(double packets)
{
    m_packets.take(packets);
    return m_packets.left() >= 0;
}

void Viewer::receive()
{
    for (int i = 0; i < PACKETS_PER_TURN && !gone() && !m_input.full(); i++) {
        display_packet packet;
        UniqueFd descriptor;
        const ssize_t length = receive_packet(m_channel.get(), &packet, &descriptor);
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            return;
        if (length <= 0) {
            hangUp();
            return;
        }
        if (length != ssize_t(sizeof packet) || !withinRate(1) ||
            !handle(packet, std::move(descriptor))) {
            close(DISPLAY_CLOSE_REFUSED);
            return;
        }
        if (packet.type == DISPLAY_PASTEBOARD_SEND)
            return; // a large one takes its time: others come first
    }
}

bool Viewer::handle(const display_packet &packet, UniqueFd descriptor)
{
    const int32_t *arg = packet.arg;
    switch (packet.type) {
    case DISPLAY_DAMAGE_DONE:
        if (m_awaiting_done && uint32_t(arg[0]) == m_serial)
            beginSerial();
        flush();
        return true;
    case DISPLAY_ACTIVE:
        if (std::exchange(m_active, arg[0] != 0) != m_active)
            m_host.viewerActivityChanged();
        flush();
        return true;
    case DISPLAY_RESIZE:
        if (arg[0] <= 0 || arg[1] <= 0)
            return false;
        m_host.viewerResize(arg[0], arg[1], arg[2] != 0);
        return true;
    case DISPLAY_PASTEBOARD_ASK:
        m_pasteboard.ask(this, /*polling=*/arg[0] != 0);
        return true;
    case DISPLAY_PASTEBOARD_SEND:
        return handlePasteboard(arg[0], std::move(descriptor));
    default:
        return ViewerInput::takes(packet.type) && m_input.handle(packet);
    }
}

bool Viewer::handlePasteboard(int32_t size, UniqueFd memory)
{
    return size >= 0 && withinRate(size / PASTEBOARD_RATE) &&
           m_pasteboard.give(std::move(memory), size_t(size));
}

Viewer::Sent Viewer::send(const display_packet &packet, int fd)
{
    if (descriptors_send(m_channel.get(), &packet, sizeof packet, {&fd, fd >= 0 ? 1u : 0u}) >= 0)
        return Sent::yes;
    return errno == EAGAIN || errno == ENOBUFS ? Sent::later : Sent::gone;
}

void Viewer::flush()
{
    if (gone())
        return;
    // A viewer that went away is met when its end of stream is read.
    m_all_sent = flushState() && flushPasteboard() && flushDamage();
    listen();
}

void Viewer::listen()
{
    if (m_source)
        sd_event_source_set_io_events(m_source.get(), (m_input.full() ? 0u : EPOLLIN) |
                                                          (m_all_sent ? 0u : EPOLLOUT));
}

// False when something is left for later. The mode goes before damage: a rectangle is one of the
// frame buffer that the viewer has by then. Each state is due once, however often it changed.
bool Viewer::flushState()
{
    if (m_mode_due) {
        const display_packet packet{DISPLAY_MODE,
                                    {int32_t(m_frame->width()), int32_t(m_frame->height()),
                                     m_mode.hdpi, m_mode.live_resize}};
        if (send(packet, m_frame->viewerFd()) == Sent::later)
            return false;
        m_mode_due = false;
    }
    if (m_pointer_due) {
        if (send({DISPLAY_POINTER, {m_absolute}}) == Sent::later)
            return false;
        m_pointer_due = false;
    }
    if (m_cursor_due) {
        if (send(m_cursor, m_cursor_memory ? m_cursor_memory->fd.get() : -1) == Sent::later)
            return false;
        m_cursor_due = false;
        m_cursor_memory.reset();
    }
    return true;
}

bool Viewer::flushPasteboard()
{
    if (m_caps_due && send({DISPLAY_CAPS, {int32_t(m_caps)}}) == Sent::later)
        return false;
    m_caps_due = false;
    if (m_archive &&
        send({DISPLAY_PASTEBOARD, {int32_t(m_archive->size)}}, m_archive->fd.get()) == Sent::later)
        return false;
    m_archive.reset();
    return true;
}

void Viewer::beginSerial()
{
    m_serial++;
    m_awaiting_done = false;
}

// What comes while a serial is being sent joins it, until its last rectangle is out; what comes
// after that waits for the viewer's answer. So a viewer never has more than one serial to take in.
bool Viewer::flushDamage()
{
    while (m_active && !m_awaiting_done && !m_damage.empty()) {
        const ScreenRect &rect = m_damage.rects().front();
        const bool last = m_damage.rects().size() == 1;
        if (send({DISPLAY_DAMAGE,
                  {rect.x, rect.y, rect.width, rect.height, int32_t(m_serial), last}}) ==
            Sent::later)
            return false;
        m_damage.dropFirst();
        m_awaiting_done = last;
    }
    return true;
}
