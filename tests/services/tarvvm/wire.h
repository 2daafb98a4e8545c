// Builds what QEMU sends to a listener, feeds it from memory and records what comes of it.
#pragma once

#include "services/tarvvm/screens/listener_reader.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Bytes of a message under construction, little-endian.
class WireBytes
{
public:
    WireBytes &u32(uint32_t value)
    {
        for (int i = 0; i < 4; i++, value >>= 8)
            bytes.push_back(char(value & 0xff));
        return *this;
    }
    WireBytes &raw(const std::string &text)
    {
        bytes += text;
        return *this;
    }
    WireBytes &pad(size_t to)
    {
        bytes.resize((bytes.size() + to - 1) / to * to, '\0');
        return *this;
    }
    std::string bytes;
};

// A call of the listener as QEMU frames it: path, interface, member and signature.
inline std::string wire_listener(const std::string &member, const std::string &signature,
                                 const std::string &body)
{
    WireBytes fields;
    const auto text = [&](char code, char kind, const std::string &value) {
        fields.pad(8).raw({code, 1, kind, 0}).u32(uint32_t(value.size())).raw(value + '\0');
    };
    text(1, 'o', "/org/qemu/Display1/Listener");
    text(2, 's', "org.qemu.Display1.Listener");
    text(3, 's', member);
    fields.pad(8).raw({8, 1, 'g', 0}).raw(char(signature.size()) + signature + '\0');
    WireBytes message;
    message.raw({'l', 1, 1, 1}).u32(uint32_t(body.size())).u32(7);
    message.u32(uint32_t(fields.bytes.size())).raw(fields.bytes).pad(8);
    return message.bytes + body;
}

class MemoryInput : public WireInput
{
public:
    explicit MemoryInput(std::string bytes) : m_bytes(std::move(bytes)) {}

    bool read(iovec *parts, int count) override
    {
        for (; count > 0; parts++, count--) {
            if (parts->iov_len > m_bytes.size() - m_offset)
                return false;
            std::memcpy(parts->iov_base, m_bytes.data() + m_offset, parts->iov_len);
            m_offset += parts->iov_len;
        }
        return true;
    }
    using WireInput::read;

private:
    std::string m_bytes;
    size_t m_offset = 0;
};

// A screen in memory that grows as it is asked to, up to a side.
class MemoryScreen : public ListenerSink
{
public:
    static constexpr uint32_t SIDE = 512;

    uint32_t at(uint32_t x, uint32_t y) const { return m_pixels[y * SIDE + x]; }
    std::vector<ScreenRect> rects;
    std::vector<CursorImage> cursors;
    bool cursor_shown = true;

private:
    PixelTarget place(uint32_t x, uint32_t y, uint32_t right, uint32_t bottom)
    {
        if (right > SIDE || bottom > SIDE)
            return {};
        return {reinterpret_cast<uint8_t *>(&m_pixels[y * SIDE + x]), size_t(SIDE) * 4};
    }
    PixelTarget scanout(uint32_t width, uint32_t height) override
    {
        return place(0, 0, width, height);
    }
    PixelTarget update(const ScreenRect &rect) override
    {
        return place(uint32_t(rect.x), uint32_t(rect.y), uint32_t(rect.x + rect.width),
                     uint32_t(rect.y + rect.height));
    }
    void painted(const ScreenRect &rect) override { rects.push_back(rect); }
    void blank() override {}
    void cursorDefined(CursorImage image) override { cursors.push_back(std::move(image)); }
    void cursorShown(bool shown) override { cursor_shown = shown; }
    bool send(const std::string &) override { return true; }

    std::vector<uint32_t> m_pixels = std::vector<uint32_t>(size_t(SIDE) * SIDE);
};
