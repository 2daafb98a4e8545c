#include "services/tarvvm/screens/shared_frame.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

std::shared_ptr<SharedFrame> SharedFrame::create(uint32_t width, uint32_t height)
{
    if (width == 0 || height == 0 || width > DISPLAY_WIDTH_MAX || height > DISPLAY_HEIGHT_MAX) {
        errno = EINVAL;
        return nullptr;
    }
    const size_t size = DISPLAY_PIXELS_OFFSET + size_t(width) * height * 4;
    std::shared_ptr<SharedFrame> frame(new SharedFrame);
    frame->m_memory = platform_memory_shared("tarv-screen", size, &frame->m_mapping);
    if (!frame->m_memory)
        return nullptr;
    new (frame->m_mapping.bytes())
        display_fbctl{DISPLAY_MAGIC, DISPLAY_VERSION, width, height, width * 4, 0, 0};
    frame->m_width = width;
    frame->m_height = height;
    return frame;
}

display_fbctl *SharedFrame::control() const
{
    return std::launder(reinterpret_cast<display_fbctl *>(m_mapping.bytes()));
}

std::shared_ptr<SharedFrame> SharedFrame::resized(uint32_t width, uint32_t height) const
{
    std::shared_ptr<SharedFrame> other = create(width, height);
    if (!other)
        return nullptr;
    const size_t row = std::min(stride(), other->stride());
    for (uint32_t y = 0; y < std::min(m_height, height); y++)
        std::memcpy(other->at(0, y), at(0, y), row);
    other->control()->frames = control()->frames;
    return other;
}

void SharedFrame::fillBlack()
{
    std::memset(at(0, 0), 0, stride() * m_height);
}

void SharedFrame::countFrame()
{
    std::atomic_ref<uint64_t>(control()->frames).fetch_add(1, std::memory_order_release);
}
