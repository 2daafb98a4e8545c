#include "tarvhv/display/mapped_frame.h"

#include "platform/memory.h"

#include <cerrno>

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

std::optional<MappedFrame> MappedFrame::map(int fd)
{
    const int64_t size = platform_memory_size(fd, /*sealed=*/true);
    if (size < 0)
        return std::nullopt;
    if (uint64_t(size) < DISPLAY_PIXELS_OFFSET) {
        errno = EPROTO;
        return std::nullopt;
    }
    MappedFrame frame;
    frame.m_memory = MappedMemory(fd, size_t(size));
    if (!frame.m_memory)
        return std::nullopt;
    const display_fbctl control = *frame.control();
    if (!is_sound(control, uint64_t(size))) {
        errno = EPROTO;
        return std::nullopt;
    }
    frame.m_width = int(control.width);
    frame.m_height = int(control.height);
    frame.m_stride = int(control.stride);
    return frame;
}
