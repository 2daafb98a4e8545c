// A guest's frame buffer, mapped from the memory that a supervisor hands over.
#pragma once

#include "tarvhv/cli2/display_protocol.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

// A read-only mapping. The supervisor is not trusted: the memory must be sealed against shrinking
// and large enough for the control block's sizes, which are read once and kept here, as the mapped
// block could change at any time.
class FrameBuffer
{
public:
    // Takes no descriptor over. Nothing with errno: EPERM for memory that could shrink, EPROTO for
    // a control block that is wrong or asks for more than there is.
    static std::optional<FrameBuffer> map(int fd);

    FrameBuffer(FrameBuffer &&other) noexcept;
    FrameBuffer &operator=(FrameBuffer &&other) noexcept;
    FrameBuffer(const FrameBuffer &) = delete;
    FrameBuffer &operator=(const FrameBuffer &) = delete;
    ~FrameBuffer();

    const display_fbctl *control() const;
    const uint8_t *pixels() const; // 32-bit xRGB, top row first
    int width() const { return m_width; }
    int height() const { return m_height; }
    int stride() const { return m_stride; } // bytes from row to row

private:
    FrameBuffer() = default;

    void *m_memory = nullptr;
    size_t m_length = 0;
    int m_width = 0;
    int m_height = 0;
    int m_stride = 0;
};
