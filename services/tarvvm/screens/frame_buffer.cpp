#include "services/tarvvm/screens/frame_buffer.h"

#include "platform/memory.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/mman.h>

std::shared_ptr<FrameBuffer> FrameBuffer::create(uint32_t width, uint32_t height)
{
    if (width == 0 || height == 0 || width > DISPLAY_WIDTH_MAX || height > DISPLAY_HEIGHT_MAX) {
        errno = EINVAL;
        return nullptr;
    }
    const size_t size = DISPLAY_PIXELS_OFFSET + size_t(width) * height * 4;
    const UniqueFd memory(platform_memory_create("tarv-screen", size));
    if (!memory || platform_memory_seal(memory.get()) != 0)
        return nullptr;
    std::shared_ptr<FrameBuffer> frame(new FrameBuffer);
    frame->m_viewer.reset(platform_memory_read_only(memory.get()));
    void *mapping = frame->m_viewer
                        ? mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0)
                        : MAP_FAILED;
    if (mapping == MAP_FAILED)
        return nullptr;
    frame->m_control =
        new (mapping) display_fbctl{DISPLAY_MAGIC, DISPLAY_VERSION, width, height, width * 4, 0, 0};
    frame->m_pixels = static_cast<uint8_t *>(mapping) + DISPLAY_PIXELS_OFFSET;
    frame->m_size = size;
    frame->m_width = width;
    frame->m_height = height;
    return frame;
}

FrameBuffer::~FrameBuffer()
{
    if (m_control)
        munmap(m_control, m_size);
}

std::shared_ptr<FrameBuffer> FrameBuffer::resized(uint32_t width, uint32_t height) const
{
    std::shared_ptr<FrameBuffer> other = create(width, height);
    if (!other)
        return nullptr;
    const size_t row = std::min(stride(), other->stride());
    for (uint32_t y = 0; y < std::min(m_height, height); y++)
        std::memcpy(other->at(0, y), m_pixels + y * stride(), row);
    other->m_control->frames = m_control->frames;
    return other;
}

void FrameBuffer::fillBlack()
{
    std::memset(m_pixels, 0, m_size - DISPLAY_PIXELS_OFFSET);
}

void FrameBuffer::countFrame()
{
    std::atomic_ref<uint64_t>(m_control->frames).fetch_add(1, std::memory_order_release);
}
