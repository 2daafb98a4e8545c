// A screen's pixels in memory that viewers map read-only.
#pragma once

#include "platform/memory.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class SharedFrame
{
public:
    // A black picture. Null with errno set; EINVAL past the limits of a screen.
    static std::shared_ptr<SharedFrame> create(uint32_t width, uint32_t height);
    SharedFrame(const SharedFrame &) = delete;
    SharedFrame &operator=(const SharedFrame &) = delete;

    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }
    size_t stride() const { return size_t(m_width) * 4; }
    uint8_t *at(uint32_t x, uint32_t y) const
    {
        return m_mapping.bytes() + DISPLAY_PIXELS_OFFSET + y * stride() + size_t(x) * 4;
    }

    // A new one of another size with the same top left. Null with errno set.
    std::shared_ptr<SharedFrame> resized(uint32_t width, uint32_t height) const;
    void fillBlack();
    // Notes in the control block that an update was written.
    void countFrame();
    // What viewers get.
    int viewerFd() const { return m_memory.fd.get(); }

private:
    SharedFrame() = default;
    display_fbctl *control() const;

    MappedMemory m_mapping; // the control block, then the pixels
    SealedMemory m_memory;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
};
