#include "tarvhv/display/packets.h"

#include "platform/memory.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace {

// Whether a peer's memory holds that many bytes: nothing is set aside for what it only claims.
bool holds(int fd, size_t length)
{
    const int64_t size = platform_memory_size(fd, /*sealed=*/false);
    return size >= 0 && uint64_t(size) >= length;
}

// Reads the first bytes of a peer's memory. A read can't fault, whatever the peer does meanwhile.
bool read_memory(int fd, void *bytes, size_t length)
{
    size_t done = 0;
    while (done < length) {
        const ssize_t got =
            pread(fd, static_cast<char *>(bytes) + done, length - done, off_t(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        done += size_t(got);
    }
    return true;
}

} // namespace

DisplayState::DisplayState(MappedFrame buffer, bool hdpi, bool live_resize, uint32_t caps,
                           bool absolute)
    : m_buffer(std::move(buffer)),
      m_hdpi(hdpi),
      m_live_resize(live_resize),
      m_caps(caps),
      m_absolute(absolute),
      m_damage(uint32_t(m_buffer.width()), uint32_t(m_buffer.height()))
{
}

bool DisplayState::feed(const display_packet &packet, UniqueFd descriptor)
{
    switch (packet.type) {
    case DISPLAY_DAMAGE:
        return feedDamage(packet);
    case DISPLAY_MODE:
        return feedMode(packet, descriptor.get());
    case DISPLAY_CURSOR:
        return feedCursor(packet, descriptor.get());
    case DISPLAY_POINTER:
        m_absolute = packet.arg[0] != 0;
        m_changes.pointer_mode = true;
        return true;
    case DISPLAY_CAPS:
        m_caps = uint32_t(packet.arg[0]);
        m_changes.caps = true;
        return true;
    case DISPLAY_PASTEBOARD:
        return feedPasteboard(packet, descriptor.get());
    case DISPLAY_CLOSED:
        m_closed = true;
        return true;
    default:
        return true; // of a later supervisor, which does not depend on it
    }
}

DisplayChanges DisplayState::takeChanges()
{
    return std::exchange(m_changes, {});
}

std::optional<int32_t> DisplayState::takeSerial()
{
    return std::exchange(m_serial, std::nullopt);
}

bool DisplayState::feedDamage(const display_packet &packet)
{
    m_damage.add({packet.arg[0], packet.arg[1], packet.arg[2], packet.arg[3]});
    m_changes.frame = !m_damage.empty();
    if (packet.arg[5] != 0)
        m_serial = packet.arg[4];
    return true;
}

bool DisplayState::feedMode(const display_packet &packet, int descriptor)
{
    std::optional<MappedFrame> buffer = MappedFrame::map(descriptor);
    if (!buffer)
        return refuse("unusable frame buffer");
    m_buffer = std::move(*buffer);
    m_hdpi = packet.arg[2] != 0;
    m_live_resize = packet.arg[3] != 0;
    m_damage.reset(uint32_t(m_buffer.width()), uint32_t(m_buffer.height()));
    m_damage.addAll();
    m_changes.mode = m_changes.frame = true;
    return true;
}

bool DisplayState::feedCursor(const display_packet &packet, int descriptor)
{
    GuestCursor cursor;
    cursor.width = packet.arg[0];
    cursor.height = packet.arg[1];
    if (cursor.width != 0 || cursor.height != 0) {
        constexpr int most = DISPLAY_CURSOR_MAX;
        if (cursor.width <= 0 || cursor.width > most || cursor.height <= 0 || cursor.height > most)
            return refuse("pointer image of an impossible size");
        const size_t count = size_t(cursor.width) * size_t(cursor.height);
        if (!holds(descriptor, count * 4))
            return refuse("pointer image without its pixels");
        cursor.pixels.resize(count);
        if (!read_memory(descriptor, cursor.pixels.data(), count * 4))
            return refuse("pointer image without its pixels");
        cursor.hot_x = std::clamp(packet.arg[2], 0, cursor.width - 1);
        cursor.hot_y = std::clamp(packet.arg[3], 0, cursor.height - 1);
    }
    m_changes.cursor = std::move(cursor);
    return true;
}

bool DisplayState::feedPasteboard(const display_packet &packet, int descriptor)
{
    if (packet.arg[0] < 0 || size_t(packet.arg[0]) > DISPLAY_PASTEBOARD_MAX)
        return refuse("pasteboard of an impossible size");
    if (!holds(descriptor, size_t(packet.arg[0])))
        return refuse("pasteboard without its bytes");
    std::string archive(size_t(packet.arg[0]), '\0');
    if (!read_memory(descriptor, archive.data(), archive.size()))
        return refuse("pasteboard without its bytes");
    m_changes.pasteboard = std::move(archive);
    return true;
}

bool DisplayState::refuse(const char *what)
{
    m_what = what;
    return false;
}
