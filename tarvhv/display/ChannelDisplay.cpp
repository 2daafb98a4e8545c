#include "tarvhv/display/ChannelDisplay.h"

#include "platform/memory.h"
#include "tarvhv/display/log.h"

#include <QImage>
#include <QPointer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace {

// Packets taken in one turn of the event loop; a flood leaves time for everything else.
constexpr int PACKETS_PER_TURN = 256;

// The fourth byte of a pixel is whatever the guest left there; whoever gets the copy may take it
// for alpha.
QImage opaque_copy(const MappedFrame &frame)
{
    QImage picture(frame.width(), frame.height(), QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); y++) {
        const uint8_t *row = frame.pixels() + qsizetype(y) * frame.stride();
        QRgb *place = reinterpret_cast<QRgb *>(picture.scanLine(y));
        std::memcpy(place, row, size_t(picture.width()) * sizeof *place);
        std::for_each(place, place + picture.width(), [](QRgb &pixel) { pixel |= 0xff000000; });
    }
    return picture;
}

QImage picture_of(const GuestCursor &cursor)
{
    return QImage(reinterpret_cast<const uchar *>(cursor.pixels.data()), cursor.width,
                  cursor.height, cursor.width * 4, QImage::Format_ARGB32_Premultiplied)
        .copy();
}

} // namespace

ChannelDisplay::ChannelDisplay(const QString &path, ScreenAnswer answer)
    : m_path(path),
      m_answer(std::move(answer)),
      m_sender(m_answer.channel.get()),
      m_readable(m_answer.channel.get(), QSocketNotifier::Read),
      m_writable(m_answer.channel.get(), QSocketNotifier::Write)
{
    m_writable.setEnabled(false);
    connect(&m_readable, &QSocketNotifier::activated, this, &ChannelDisplay::readable);
    connect(&m_writable, &QSocketNotifier::activated, this, [this] {
        const bool sound = m_sender.flush();
        m_writable.setEnabled(sound && m_sender.waiting() != 0);
    });
}

const uint8_t *ChannelDisplay::fbuf() const
{
    return m_closed ? nullptr : m_answer.state.buffer().pixels();
}

const display_fbctl *ChannelDisplay::fbctl() const
{
    return m_closed ? nullptr : m_answer.state.buffer().control();
}

void ChannelDisplay::setWidth(uint32_t width, uint32_t height, bool hdpi)
{
    m_wish = Hint(std::min(width, DISPLAY_WIDTH_MAX), std::min(height, DISPLAY_HEIGHT_MAX), hdpi);
    if (m_wish != currentSize() && m_wish != m_lastHint)
        sendWish();
}

ChannelDisplay::Hint ChannelDisplay::currentSize() const
{
    return {uint32_t(width()), uint32_t(height()), hdpi()};
}

void ChannelDisplay::sendWish()
{
    m_lastHint = m_wish;
    const auto [width, height, hdpi] = *m_wish;
    send(DISPLAY_RESIZE, {int32_t(width), int32_t(height), hdpi});
}

// The guest has another size. If it answers a hint while the latest wish, the size of then, was not
// worth a hint, that wish is due now; else any size may be asked for again.
void ChannelDisplay::sizeChanged()
{
    if (m_lastHint == currentSize() && m_wish != currentSize())
        sendWish();
    else
        m_lastHint.reset();
}

bool ChannelDisplay::preparePasteboardForPolling()
{
    return !m_closed && (caps() & DISPLAY_CAP_COPY) != 0;
}

void ChannelDisplay::requestPasteboard(bool polling)
{
    if ((caps() & DISPLAY_CAP_COPY) != 0)
        send(DISPLAY_PASTEBOARD_ASK, {polling});
}

void ChannelDisplay::sendPasteboard(const QByteArray &archive)
{
    if (m_closed || (caps() & DISPLAY_CAP_PASTE) == 0)
        return;
    if (size_t(archive.size()) > DISPLAY_PASTEBOARD_MAX) {
        display_log("a pasteboard of %lld bytes is too large for the guest",
                    static_cast<long long>(archive.size()));
        return;
    }
    const std::string_view bytes(archive.constData(), size_t(archive.size()));
    SealedMemory memory = platform_memory_of("tarv-pasteboard", bytes);
    if (!memory) {
        display_log("no memory to send the pasteboard: %s", std::strerror(errno));
        return;
    }
    send(DISPLAY_PASTEBOARD_SEND, {int32_t(archive.size())}, std::move(memory.fd));
}

void ChannelDisplay::takeScreenshotWithCompletionHandler(ScreenshotHandler handler)
{
    QImage picture = m_closed ? QImage() : opaque_copy(m_answer.state.buffer());
    if (hdpi())
        picture.setDevicePixelRatio(2.0);
    QMetaObject::invokeMethod(
        this, [picture, handler = std::move(handler)] { handler(picture); }, Qt::QueuedConnection);
}

void ChannelDisplay::sendKey(uint32_t number, bool down)
{
    send(DISPLAY_KEY, {int32_t(number), down});
}

void ChannelDisplay::sendPointerPosition(int x, int y, uint32_t buttons)
{
    send(DISPLAY_POINTER_ABS, {x, y, int32_t(buttons)});
}

void ChannelDisplay::sendPointerMotion(int dx, int dy, uint32_t buttons)
{
    send(DISPLAY_POINTER_REL, {dx, dy, int32_t(buttons)});
}

void ChannelDisplay::sendWheel(int vertical, int horizontal)
{
    send(DISPLAY_WHEEL, {vertical, horizontal});
}

void ChannelDisplay::setActive(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    send(DISPLAY_ACTIVE, {active});
}

void ChannelDisplay::acknowledgeFrame()
{
    const std::optional<int32_t> serial = m_answer.state.takeSerial();
    if (serial)
        send(DISPLAY_DAMAGE_DONE, {*serial});
}

// Takes what waits on the channel and announces it once. The channel is level-triggered: what is
// left brings the next turn.
void ChannelDisplay::readable()
{
    const QPointer<ChannelDisplay> alive(this);
    const char *end = nullptr;
    for (int count = 0; count < PACKETS_PER_TURN && !end; count++) {
        display_packet packet;
        std::vector<UniqueFd> descriptors;
        const ssize_t got =
            receive_with_descriptors(m_answer.channel.get(), &packet, sizeof packet, &descriptors);
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (got == 0 || (got < 0 && errno == ECONNRESET))
            end = "the supervisor is gone";
        else if (got != ssize_t(sizeof packet) || descriptors.size() > 1)
            end = "packet of a wrong size";
        else if (!m_answer.state.feed(packet,
                                      descriptors.empty() ? UniqueFd() : std::move(descriptors[0])))
            end = m_answer.state.what();
        else if (m_answer.state.closed())
            end = "";
    }
    announce();
    if (alive && end)
        close(end);
}

void ChannelDisplay::announce()
{
    const QPointer<ChannelDisplay> alive(this);
    const DisplayChanges changes = m_answer.state.takeChanges();
    if (changes.pointer_mode)
        Q_EMIT pointerModeChanged(absolutePointer());
    if (alive && changes.cursor)
        Q_EMIT pointerChanged(changes.cursor->pixels.empty() ? QImage()
                                                             : picture_of(*changes.cursor),
                              QPoint(changes.cursor->hot_x, changes.cursor->hot_y));
    if (alive && changes.caps)
        Q_EMIT capsChanged();
    if (alive)
        announceFrame(changes);
    if (alive && m_delegate && changes.pasteboard)
        m_delegate->displayPasteboardDataDidChange(this,
                                                   QByteArray::fromStdString(*changes.pasteboard));
}

void ChannelDisplay::announceFrame(const DisplayChanges &changes)
{
    if (changes.mode)
        sizeChanged();
    if (!changes.frame)
        acknowledgeFrame(); // damage of which nothing lies in the picture
    else if (m_delegate && changes.mode)
        m_delegate->displayNotification(this);
    else if (m_delegate)
        m_delegate->displayPixelsDidChange(this);
}

void ChannelDisplay::send(uint32_t type, std::initializer_list<int32_t> arguments,
                          UniqueFd descriptor)
{
    if (m_closed)
        return;
    // A peer that is gone shows as end of stream on the reading side.
    const bool sound = m_sender.send(display_packet_of(type, arguments), std::move(descriptor));
    m_writable.setEnabled(sound && m_sender.waiting() != 0);
}

void ChannelDisplay::close(const char *why)
{
    if (m_closed)
        return;
    if (*why != '\0')
        display_log("screen %u of %s: %s", index(), m_answer.uuid.c_str(), why);
    m_closed = true;
    m_readable.setEnabled(false);
    m_writable.setEnabled(false);
    if (m_delegate)
        m_delegate->displayDidClose(this);
}
