// A guest's frame buffer, mapped from the memory that a supervisor hands over.
#pragma once

#include "platform/mapping.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstdint>
#include <optional>

// A read-only mapping. The supervisor is not trusted: the memory must be sealed against shrinking
// and large enough for the control block's sizes, which are read once and kept here, as the mapped
// block could change at any time.
class MappedFrame
{
public:
    // Takes no descriptor over. Nothing with errno: EPERM for memory that could shrink, EPROTO for
    // a control block that is wrong or asks for more than there is.
    static std::optional<MappedFrame> map(int fd);

    const display_fbctl *control() const
    {
        return reinterpret_cast<const display_fbctl *>(m_memory.bytes());
    }
    const uint8_t *pixels() const { return m_memory.bytes() + DISPLAY_PIXELS_OFFSET; } // xRGB rows
    int width() const { return m_width; }
    int height() const { return m_height; }
    int stride() const { return m_stride; } // bytes from row to row

private:
    MappedFrame() = default;

    MappedMemory m_memory;
    int m_width = 0;
    int m_height = 0;
    int m_stride = 0;
};
