#include "tarvhv/display/framebuffer.h"

#include "platform/memory.h"

#include <cerrno>
#include <sys/mman.h>

namespace {

// Rows may be padded, within reason.
constexpr uint32_t STRIDE_MAX = DISPLAY_WIDTH_MAX * 4 * 2;

bool is_sound(const display_fbctl &control, uint64_t size)
{
    if (control.magic != DISPLAY_MAGIC || control.version != DISPLAY_VERSION)
        return false;
    if (control.width == 0 || control.width > DISPLAY_WIDTH_MAX || control.height == 0 ||
        control.height > DISPLAY_HEIGHT_MAX)
        return false;
    if (control.stride % 4 != 0 || control.stride < control.width * 4 ||
        control.stride > STRIDE_MAX)
        return false;
    return DISPLAY_PIXELS_OFFSET + uint64_t{control.stride} * control.height <= size;
}

} // namespace

std::optional<FrameBuffer> FrameBuffer::map(int fd)
{
    const int64_t size = platform_memory_size(fd, /*sealed=*/true);
    if (size < 0)
        return std::nullopt;
    if (uint64_t(size) < DISPLAY_PIXELS_OFFSET) {
        errno = EPROTO;
        return std::nullopt;
    }
    FrameBuffer buffer;
    void *memory = mmap(nullptr, size_t(size), PROT_READ, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED)
        return std::nullopt;
    buffer.m_memory = memory;
    buffer.m_length = size_t(size);
    const display_fbctl control = *buffer.control();
    if (!is_sound(control, uint64_t(size))) {
        errno = EPROTO;
        return std::nullopt;
    }
    buffer.m_width = int(control.width);
    buffer.m_height = int(control.height);
    buffer.m_stride = int(control.stride);
    return buffer;
}

FrameBuffer::FrameBuffer(FrameBuffer &&other) noexcept
    : m_memory(std::exchange(other.m_memory, nullptr)),
      m_length(other.m_length),
      m_width(other.m_width),
      m_height(other.m_height),
      m_stride(other.m_stride)
{
}

FrameBuffer &FrameBuffer::operator=(FrameBuffer &&other) noexcept
{
    std::swap(m_memory, other.m_memory);
    std::swap(m_length, other.m_length);
    m_width = other.m_width;
    m_height = other.m_height;
    m_stride = other.m_stride;
    return *this;
}

FrameBuffer::~FrameBuffer()
{
    if (m_memory) {
        const int error = errno;
        munmap(m_memory, m_length);
        errno = error;
    }
}

const display_fbctl *FrameBuffer::control() const
{
    return static_cast<const display_fbctl *>(m_memory);
}

const uint8_t *FrameBuffer::pixels() const
{
    return static_cast<const uint8_t *>(m_memory) + DISPLAY_PIXELS_OFFSET;
}
