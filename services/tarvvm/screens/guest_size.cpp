#include "services/tarvvm/screens/guest_size.h"

#include "tarvhv/cli2/display_protocol.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint32_t WIDTH_MIN = 640; // below, guests come up with a mode of their own
constexpr uint32_t HEIGHT_MIN = 480;

// Millimetres at 96 pixels an inch, or 192.
uint16_t millimetres(uint32_t pixels, bool hdpi)
{
    return uint16_t(pixels * 254 / (hdpi ? 1920 : 960));
}

} // namespace

GuestSize::GuestSize(DisplayBus &bus, unsigned console, bool hdpi, std::function<void()> changed,
                     Log log)
    : m_bus(bus),
      m_console(console),
      m_changed(std::move(changed)),
      m_log(std::move(log)),
      m_mode{hdpi, /*live_resize=*/true}
{
}

void GuestSize::request(int32_t width, int32_t height, bool hdpi)
{
    const Hint hint{std::clamp(uint32_t(std::max(width, 0)), WIDTH_MIN, DISPLAY_WIDTH_MAX),
                    std::clamp(uint32_t(std::max(height, 0)), HEIGHT_MIN, DISPLAY_HEIGHT_MAX),
                    hdpi};
    const Hint current{m_width, m_height, m_mode.hdpi};
    if (hint == m_last || (hint == current && !m_last))
        return;
    m_last = hint;
    // No new picture comes for a size that the guest has already.
    if (hint.width == current.width && hint.height == current.height && hint != current) {
        m_mode.hdpi = hdpi;
        m_changed();
    }
    tell(hint);
}

void GuestSize::plugIn(uint32_t width, uint32_t height)
{
    m_last = {width, height, m_mode.hdpi};
    tell(*m_last);
}

void GuestSize::pictureIs(uint32_t width, uint32_t height)
{
    m_width = width;
    m_height = height;
    if (!m_last)
        return;
    m_mode.hdpi = m_last->hdpi;
    if (m_last->width != width || m_last->height != height)
        m_last.reset();
}

void GuestSize::tell(const Hint &hint)
{
    if (std::exchange(m_telling, true)) {
        m_next = hint;
        return;
    }
    m_bus.setSize(m_console, millimetres(hint.width, hint.hdpi),
                  millimetres(hint.height, hint.hdpi), hint.width, hint.height,
                  [this](const ServiceFailure &failure) { told(failure); });
}

void GuestSize::told(const ServiceFailure &failure)
{
    m_telling = false;
    if (failure && m_mode.live_resize) {
        m_log("no other size: " + failure.text);
        m_mode.live_resize = false;
        m_changed();
    }
    if (const std::optional<Hint> next = std::exchange(m_next, std::nullopt))
        tell(*next);
}
