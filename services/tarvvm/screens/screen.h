// One screen of the VM: its console at QEMU, its picture, its viewers.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/screens/desktop.h"
#include "services/tarvvm/screens/display_bus.h"
#include "services/tarvvm/screens/engine_input.h"
#include "services/tarvvm/screens/guest_size.h"
#include "services/tarvvm/screens/screen_feed.h"
#include "services/tarvvm/screens/viewer.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class Screen : private ViewerHost
{
public:
    using Log = std::function<void(const std::string &)>;

    // Null with errno set. `desktop` is null where this is the guest's only screen.
    static std::unique_ptr<Screen> create(sd_event *loop, DisplayBus &bus, const Console &console,
                                          bool hdpi, GuestPasteboard &pasteboard, Desktop *desktop,
                                          InputGate &gate, Log log);
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    // A new viewer, with one end of its channel. It starts as one that looks.
    void addViewer(UniqueFd channel);
    void consoleChanged(const ConsoleChange &change);
    // Tells all viewers and hangs up.
    void close(display_close_reason reason);
    // Plugs in a further screen, which QEMU shows in a size of its own until the guest uses it.
    void plugIn(uint32_t width, uint32_t height);
    // Tells QEMU the size that the guest has, after it was loaded with a saved state.
    void keepSize() { m_size.keep(m_console.width, m_console.height); }

    const SharedFrame &frame() const { return *m_frame; }
    ScreenMode mode() const { return m_size.mode(); }
    bool absolute() const { return m_console.absolute; }
    unsigned index() const { return m_console.index; }
    size_t viewers() const { return m_viewers.size(); }
    // Whether the guest has set a size.
    bool used() const { return m_used; }

private:
    Screen(sd_event *loop, DisplayBus &bus, const Console &console, bool hdpi,
           GuestPasteboard &pasteboard, Desktop *desktop, InputGate &gate, Log log);

    void viewerActivityChanged() override { updateListener(); }
    void viewerResize(int32_t width, int32_t height, bool hdpi) override
    {
        m_size.request(width, height, hdpi);
    }
    void viewerGone() override;

    void updateListener();
    void startListener();
    void finishListener();
    void listenerEnded(const std::string &error);
    void handleNews();
    void frameChanged(std::shared_ptr<SharedFrame> frame);
    void setCursor(const CursorImage &image);
    void sendCursor(Viewer &viewer);
    void checkSize();
    bool sizeDiffers() const;
    void broadcastMode();
    void log(const std::string &line);

    sd_event *m_loop;
    DisplayBus &m_bus;
    Console m_console;
    const Console m_begun; // what it was before the guest ran
    bool m_used = false;
    GuestPasteboard &m_pasteboard;
    Desktop *m_desktop;
    InputGate &m_gate;
    Log m_log;
    EngineInput m_input;
    GuestSize m_size;
    std::unique_ptr<ScreenFeed> m_feed;
    std::shared_ptr<SharedFrame> m_frame; // that viewers know of
    std::vector<std::unique_ptr<Viewer>> m_viewers;
    EventSource m_news, m_sweep, m_retry, m_size_check;
    CursorImage m_cursor;
    std::shared_ptr<const SealedMemory> m_cursor_memory;
    bool m_has_cursor = false;
    bool m_closing = false;
    bool m_finishing = false; // the listener's end was asked for
    std::chrono::steady_clock::time_point m_begun_listening;
};
