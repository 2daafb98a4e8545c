#include "services/tarvvm/screens/listener_reader.h"

#include "tarvhv/cli2/display_protocol.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr size_t AUTH_LINE_MAX = 1024;
constexpr size_t SCANOUT_HEAD = 20; // uuuu and the array's length
constexpr size_t UPDATE_HEAD = 28;  // iiiiuu and the array's length
constexpr size_t CURSOR_HEAD = 20;  // iiii and the array's length
constexpr size_t MOUSE_BODY = 12;   // iii
constexpr size_t STRIDE_MAX = size_t(DISPLAY_WIDTH_MAX) * 16;
constexpr size_t COMPARED_MAX = 65536; // bytes of a piece

constexpr const char *LISTENER = "org.qemu.Display1.Listener";

} // namespace

bool ListenerReader::fail(const char *message)
{
    m_error = message;
    return false;
}

bool ListenerReader::authenticate(uid_t uid)
{
    // A zero byte, then the user's number in decimal, in hexadecimal digits.
    std::string hello(1, '\0');
    hello += "AUTH EXTERNAL ";
    for (const char digit : std::to_string(uid)) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned>(digit));
        hello += hex;
    }
    if (!m_sink.send(hello + "\r\n"))
        return false;
    std::string line;
    while (!line.ends_with("\r\n")) {
        char c;
        if (line.size() >= AUTH_LINE_MAX)
            return fail("QEMU's greeting has no end");
        if (!m_input.read(&c, 1))
            return false;
        line.push_back(c);
    }
    if (!line.starts_with("OK"))
        return fail("QEMU refused the listener's introduction");
    return m_sink.send("BEGIN\r\n");
}

bool ListenerReader::readMessage()
{
    m_error.clear();
    m_header.resize(DBUS_HEADER_START);
    if (!m_input.read(m_header.data(), DBUS_HEADER_START))
        return false;
    const std::optional<size_t> length = dbus_header_length(m_header.data());
    if (!length)
        return fail("QEMU sent something else than a message");
    m_header.resize(*length);
    if (!m_input.read(m_header.data() + DBUS_HEADER_START, *length - DBUS_HEADER_START))
        return false;
    const std::optional<DbusHeader> header = dbus_parse_header(m_header.data(), *length);
    if (!header)
        return fail("QEMU sent a malformed message header");
    m_left = header->body_length;
    if (header->type == DBUS_CALL && !handleCall(*header))
        return false;
    return skip(m_left);
}

bool ListenerReader::handleCall(const DbusHeader &call)
{
    if (call.interface == "org.freedesktop.DBus.Properties" && call.member == "GetAll")
        return reply(call, DbusReply::emptyProperties);
    if (call.interface != LISTENER)
        return reply(call, DbusReply::unknownMethod);
    return handleListener(call) && reply(call, DbusReply::nothing);
}

bool ListenerReader::handleListener(const DbusHeader &call)
{
    if (call.member == "Scanout")
        return handleScanout(call);
    if (call.member == "Update")
        return handleUpdate(call);
    if (call.member == "CursorDefine")
        return handleCursor(call);
    if (call.member == "MouseSet")
        return handleMouse(call);
    if (call.member == "Disable")
        m_sink.blank();
    return true;
}

bool ListenerReader::readBody(uint8_t *bytes, size_t length)
{
    if (length > m_left)
        return fail("QEMU sent a message that is too short");
    m_left -= length;
    return m_input.read(bytes, length);
}

bool ListenerReader::skip(size_t length)
{
    while (length > 0) {
        const size_t part = std::min(length, sizeof m_waste);
        if (!readBody(m_waste, part))
            return false;
        length -= part;
    }
    return true;
}

bool ListenerReader::reply(const DbusHeader &call, DbusReply kind)
{
    return !call.wants_reply || m_sink.send(dbus_make_reply(call, m_serial++, kind));
}

bool ListenerReader::handleScanout(const DbusHeader &call)
{
    uint8_t head[SCANOUT_HEAD];
    if (call.signature != "uuuuay")
        return fail("malformed Scanout");
    if (!readBody(head, sizeof head))
        return false;
    const uint32_t width = dbus_u32(head);
    const uint32_t height = dbus_u32(head + 4);
    if (width == 0 || height == 0 || width > DISPLAY_WIDTH_MAX || height > DISPLAY_HEIGHT_MAX)
        return fail("Scanout of an impossible size");
    const ScreenRect rect{0, 0, int32_t(width), int32_t(height)};
    return readPixels(rect, dbus_u32(head + 8), dbus_u32(head + 12), dbus_u32(head + 16),
                      m_sink.scanout(width, height));
}

bool ListenerReader::handleUpdate(const DbusHeader &call)
{
    uint8_t head[UPDATE_HEAD];
    if (call.signature != "iiiiuuay")
        return fail("malformed Update");
    if (!readBody(head, sizeof head))
        return false;
    const ScreenRect rect{int32_t(dbus_u32(head)), int32_t(dbus_u32(head + 4)),
                          int32_t(dbus_u32(head + 8)), int32_t(dbus_u32(head + 12))};
    constexpr int32_t wide = DISPLAY_WIDTH_MAX;
    constexpr int32_t high = DISPLAY_HEIGHT_MAX;
    if (rect.x < 0 || rect.y < 0 || rect.width <= 0 || rect.height <= 0 || rect.x >= wide ||
        rect.y >= high || rect.width > wide - rect.x || rect.height > high - rect.y)
        return fail("Update outside any possible screen");
    return readPixels(rect, dbus_u32(head + 16), dbus_u32(head + 20), dbus_u32(head + 24),
                      m_sink.update(rect));
}

bool ListenerReader::readPixels(const ScreenRect &rect, uint32_t stride, uint32_t format_word,
                                size_t length, PixelTarget target)
{
    const std::optional<PixelFormat> format = pixel_format(format_word);
    if (!format)
        return fail("pixels of an unknown format");
    const size_t row = size_t(rect.width) * format->bytes;
    if (length != m_left || stride < row || stride > STRIDE_MAX ||
        length < stride * (size_t(rect.height) - 1) + row)
        return fail("pixels whose length does not fit their size");
    if (!target.pixels)
        return fail("no memory for the screen");
    int32_t unchanged = 0;
    const bool read = format->isNative() ? readNative(rect, stride, target, length, &unchanged)
                                         : readConverted(rect, stride, *format, target, length);
    if (!read)
        return false;
    if (unchanged < rect.height)
        m_sink.painted({rect.x, rect.y + unchanged, rect.width, rect.height - unchanged});
    return true;
}

bool ListenerReader::readNative(const ScreenRect &rect, size_t stride, PixelTarget target,
                                size_t length, int32_t *unchanged)
{
    int32_t rows = 0;
    if (!readCompared(rect, stride, target, &rows, unchanged))
        return false;
    target.pixels += size_t(rows) * target.stride;
    length -= std::min(length, size_t(rows) * stride);
    return readInPlace({rect.x, rect.y + rows, rect.width, rect.height - rows}, stride, target,
                       length);
}

// QEMU sends a text screen 30 times a second whether or not it changed. What is there already costs
// a comparison here and nothing further on. The pieces grow: a picture that did change is read in
// place but for its first rows.
bool ListenerReader::readCompared(const ScreenRect &rect, size_t stride, PixelTarget target,
                                  int32_t *rows, int32_t *unchanged)
{
    const size_t row = size_t(rect.width) * 4;
    const int32_t most = std::max(1, int32_t(COMPARED_MAX / stride));
    for (int32_t piece = 1; *rows == *unchanged && *rows < rect.height;
         piece = std::min(piece * 2, most)) {
        const int32_t count = std::min(piece, rect.height - *rows);
        m_row.resize(size_t(count) * stride);
        if (!readBody(m_row.data(), std::min(m_row.size(), m_left))) // no gap behind the last row
            return false;
        for (int32_t i = 0; i < count; i++, ++*rows) {
            uint8_t *place = target.pixels + size_t(*rows) * target.stride;
            const uint8_t *pixels = m_row.data() + size_t(i) * stride;
            if (*unchanged == *rows && std::memcmp(place, pixels, row) == 0)
                ++*unchanged;
            else
                std::memcpy(place, pixels, row);
        }
    }
    return true;
}

bool ListenerReader::readInPlace(const ScreenRect &rect, size_t stride, PixelTarget target,
                                 size_t length)
{
    constexpr int PARTS = 128;
    const size_t row = size_t(rect.width) * 4;
    const size_t padding = stride - row;
    iovec parts[PARTS];
    int count = 0;
    const auto flush = [&] { return count == 0 || m_input.read(parts, std::exchange(count, 0)); };
    for (int32_t y = 0; y < rect.height; y++) {
        uint8_t *place = target.pixels + size_t(y) * target.stride;
        const iovec *last = count > 0 ? &parts[count - 1] : nullptr;
        // Rows without anything between them are one piece.
        if (last && static_cast<uint8_t *>(last->iov_base) + last->iov_len == place)
            parts[count - 1].iov_len += row;
        else
            parts[count++] = {place, row};
        length -= row;
        for (size_t gap = std::min(padding, length); gap > 0;) {
            const size_t part = std::min(gap, sizeof m_waste);
            if (count == PARTS && !flush())
                return false;
            parts[count++] = {m_waste, part};
            gap -= part;
            length -= part;
        }
        if (count == PARTS && !flush())
            return false;
    }
    m_left = length;
    return flush();
}

bool ListenerReader::readConverted(const ScreenRect &rect, size_t stride, const PixelFormat &format,
                                   PixelTarget target, size_t length)
{
    m_row.resize(stride);
    for (int32_t y = 0; y < rect.height; y++) {
        const size_t part = std::min(stride, length);
        if (!readBody(m_row.data(), part))
            return false;
        length -= part;
        format.convert(m_row.data(), target.pixels + size_t(y) * target.stride, size_t(rect.width));
    }
    return true;
}

bool ListenerReader::handleCursor(const DbusHeader &call)
{
    uint8_t head[CURSOR_HEAD];
    if (call.signature != "iiiiay")
        return fail("malformed CursorDefine");
    if (!readBody(head, sizeof head))
        return false;
    CursorImage image;
    image.width = dbus_u32(head);
    image.height = dbus_u32(head + 4);
    image.hot_x = int32_t(dbus_u32(head + 8));
    image.hot_y = int32_t(dbus_u32(head + 12));
    if (image.width > DISPLAY_CURSOR_MAX || image.height > DISPLAY_CURSOR_MAX ||
        dbus_u32(head + 16) != size_t(image.width) * image.height * 4 ||
        dbus_u32(head + 16) != m_left)
        return fail("CursorDefine of an impossible size");
    image.pixels.resize(m_left);
    if (!image.pixels.empty() && !readBody(image.pixels.data(), image.pixels.size()))
        return false;
    // Colours brighter than their alpha are no premultiplied pixels: such an image was straight.
    for (size_t i = 0; i + 3 < image.pixels.size(); i += 4)
        for (size_t channel = 0; channel < 3; channel++)
            image.pixels[i + channel] = std::min(image.pixels[i + channel], image.pixels[i + 3]);
    m_sink.cursorDefined(std::move(image));
    return true;
}

bool ListenerReader::handleMouse(const DbusHeader &call)
{
    uint8_t body[MOUSE_BODY];
    if (call.signature != "iii")
        return fail("malformed MouseSet");
    if (!readBody(body, sizeof body))
        return false;
    m_sink.cursorShown(dbus_u32(body + 8) != 0);
    return true;
}
