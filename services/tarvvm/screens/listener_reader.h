// Reads what QEMU sends to a display listener: pixels go straight to where they belong.
#pragma once

#include "services/tarvvm/screens/dbus_wire.h"
#include "services/tarvvm/screens/pixel_format.h"
#include "tarvhv/cli2/damage.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>
#include <sys/uio.h>

// Where the bytes come from. A read delivers all that it is asked for, or fails.
class WireInput
{
public:
    virtual ~WireInput() = default;
    // Fills the parts in order; it may change them on the way.
    virtual bool read(iovec *parts, int count) = 0;
    bool read(void *bytes, size_t length)
    {
        iovec part{bytes, length};
        return read(&part, 1);
    }
};

// A place for the pixels of a rectangle: 32-bit xRGB rows. Without pixels the update is refused.
struct PixelTarget
{
    uint8_t *pixels = nullptr;
    size_t stride = 0;
};

struct CursorImage
{
    uint32_t width = 0; // pixels; 0: no image
    uint32_t height = 0;
    int32_t hot_x = 0;
    int32_t hot_y = 0;
    std::vector<uint8_t> pixels; // premultiplied ARGB32, top row first
};

class ListenerSink
{
public:
    virtual ~ListenerSink() = default;
    // The whole screen of this size comes, or a part, which may lie outside what came last.
    virtual PixelTarget scanout(uint32_t width, uint32_t height) = 0;
    virtual PixelTarget update(const ScreenRect &rect) = 0;
    // New pixels of that rectangle are in place. Not called for what the target held already.
    virtual void painted(const ScreenRect &rect) = 0;
    // The screen shows nothing.
    virtual void blank() = 0;
    virtual void cursorDefined(CursorImage image) = 0;
    virtual void cursorShown(bool shown) = 0;
    // Sends bytes to QEMU. False when it is gone.
    virtual bool send(const std::string &bytes) = 0;
};

class ListenerReader
{
public:
    ListenerReader(WireInput &input, ListenerSink &sink) : m_input(input), m_sink(sink) {}

    // Introduces this user to QEMU, which is the server of the handshake.
    bool authenticate(uid_t uid);
    // Handles one message. False at the end of the stream and for one that breaks the protocol,
    // which error() then tells.
    bool readMessage();
    // Why the last call failed; empty at the end of the stream.
    const std::string &error() const { return m_error; }

private:
    bool fail(const char *message);
    bool readBody(uint8_t *bytes, size_t length);
    bool skip(size_t length);
    bool handleCall(const DbusHeader &call);
    bool handleListener(const DbusHeader &call);
    bool handleScanout(const DbusHeader &call);
    bool handleUpdate(const DbusHeader &call);
    bool handleCursor(const DbusHeader &call);
    bool handleMouse(const DbusHeader &call);
    bool reply(const DbusHeader &call, DbusReply reply);
    bool readPixels(const ScreenRect &rect, uint32_t stride, uint32_t format, size_t length,
                    PixelTarget target);
    bool readNative(const ScreenRect &rect, size_t stride, PixelTarget target, size_t length,
                    int32_t *unchanged);
    bool readCompared(const ScreenRect &rect, size_t stride, PixelTarget target, int32_t *rows,
                      int32_t *unchanged);
    bool readInPlace(const ScreenRect &rect, size_t stride, PixelTarget target, size_t length);
    bool readConverted(const ScreenRect &rect, size_t stride, const PixelFormat &format,
                       PixelTarget target, size_t length);

    WireInput &m_input;
    ListenerSink &m_sink;
    std::vector<uint8_t> m_header;
    std::vector<uint8_t> m_row;
    size_t m_left = 0; // bytes of the current message's body not yet read
    uint32_t m_serial = 1;
    std::string m_error;
    uint8_t m_waste[16384];
};
