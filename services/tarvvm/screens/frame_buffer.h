// A screen's pixels in memory that viewers map read-only.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class FrameBuffer
{
public:
    // A black picture. Null with errno set; EINVAL past the limits of a screen.
    static std::shared_ptr<FrameBuffer> create(uint32_t width, uint32_t height);
    ~FrameBuffer();
    FrameBuffer(const FrameBuffer &) = delete;
    FrameBuffer &operator=(const FrameBuffer &) = delete;

    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }
    size_t stride() const { return size_t(m_width) * 4; }
    uint8_t *at(uint32_t x, uint32_t y) { return m_pixels + y * stride() + size_t(x) * 4; }

    // A new one of another size with the same top left. Null with errno set.
    std::shared_ptr<FrameBuffer> resized(uint32_t width, uint32_t height) const;
    void fillBlack();
    // Notes in the control block that an update was written.
    void countFrame();
    // What viewers get: a descriptor that can't write.
    int viewerFd() const { return m_viewer.get(); }

private:
    FrameBuffer() = default;

    UniqueFd m_viewer;
    display_fbctl *m_control = nullptr; // start of the mapping
    uint8_t *m_pixels = nullptr;
    size_t m_size = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
};
