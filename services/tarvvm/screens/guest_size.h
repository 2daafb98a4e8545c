// The size that a guest is asked to give one of its screens.
#pragma once

#include "services/tarvvm/screens/display_bus.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

// What a viewer is told of a screen's size beside its pixels.
struct ScreenMode
{
    bool hdpi = false;        // its pixels are half as large as usual
    bool live_resize = false; // it follows the sizes that it is asked for
};

// QEMU is told one size at a time: of those that come before it took the last, only the latest
// counts. Guests answer a size by setting it, or another, or not at all, and after any time. So a
// size is asked for once, until the guest has set one: what it then is stands, asked for or not.
class GuestSize
{
public:
    using Log = std::function<void(const std::string &)>;

    // `changed` is told when the mode is another one. The bus outlives this.
    GuestSize(DisplayBus &bus, unsigned console, bool hdpi, std::function<void()> changed, Log log);
    GuestSize(const GuestSize &) = delete;
    GuestSize &operator=(const GuestSize &) = delete;

    ScreenMode mode() const { return m_mode; }
    // A viewer wants a size; the picture has another, or the same.
    void request(int32_t width, int32_t height, bool hdpi);
    // Tells QEMU that a size is wanted whatever the picture's is: it forgets the sizes of screens
    // that it did not show, and those of a resumed guest.
    void plugIn(uint32_t width, uint32_t height);
    void keep(uint32_t width, uint32_t height) { tell({width, height, m_mode.hdpi}); }
    // The picture has this size.
    void pictureIs(uint32_t width, uint32_t height);

private:
    struct Hint
    {
        uint32_t width = 0;
        uint32_t height = 0;
        bool hdpi = false;
        bool operator==(const Hint &) const = default;
    };

    void tell(const Hint &hint);
    void told(const ServiceFailure &failure);

    DisplayBus &m_bus;
    unsigned m_console;
    std::function<void()> m_changed;
    Log m_log;
    ScreenMode m_mode;
    uint32_t m_width = 0; // of the picture
    uint32_t m_height = 0;
    std::optional<Hint> m_last; // asked of the guest, no other size since
    std::optional<Hint> m_next; // to be told once QEMU took the one that it is being told
    bool m_telling = false;
};
