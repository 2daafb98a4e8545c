// One viewer of a screen, on its display channel. Nothing here ever waits for it, and rules that it
// breaks cost it the connection.
//
// A viewer that is stopped, or that hangs, costs what stands in this class: the latest of each
// state (mode, pointer, pasteboard) and a few rectangles, whatever happens on the screen meanwhile.
// What is in its channel is bounded by the size of that, which is kept small because every frame
// buffer on its way there stays in memory until it is taken. The screen's other viewers and QEMU
// don't notice.
#pragma once

#include "services/loop/event.h"
#include "services/loop/rate.h"
#include "services/tarvvm/pasteboard/guest_pasteboard.h"
#include "services/tarvvm/screens/guest_size.h"
#include "services/tarvvm/screens/listener_reader.h"
#include "services/tarvvm/screens/shared_frame.h"
#include "services/tarvvm/screens/viewer_input.h"

#include "platform/unique_fd.h"
#include "tarvhv/cli2/damage.h"
#include "tarvhv/cli2/display_protocol.h"

#include <cstdint>
#include <memory>

// What a viewer asks of its screen.
class ViewerHost
{
public:
    virtual ~ViewerHost() = default;
    virtual void viewerActivityChanged() = 0;
    virtual void viewerResize(int32_t width, int32_t height, bool hdpi) = 0;
    // The viewer is done; it may be destroyed on the loop's next turn.
    virtual void viewerGone() = 0;
};

class Viewer : private PasteboardReader
{
public:
    // `frame` is what the viewer got with the answer to its request.
    Viewer(sd_event *loop, UniqueFd channel, std::shared_ptr<SharedFrame> frame, ViewerHost &host,
           GuestInput &guest, InputGate &gate, GuestPasteboard &pasteboard);
    ~Viewer() override;
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    bool gone() const { return !m_channel; }
    bool active() const { return !gone() && m_active; }

    // What changed; each is sent as soon as the viewer has room for it.
    void setFrame(std::shared_ptr<SharedFrame> frame, ScreenMode mode);
    void addDamage(const Damage &damage);
    // The image's pixels, or a width of 0 and none.
    void setCursor(std::shared_ptr<const SealedMemory> memory, const CursorImage &image);
    void setAbsolute(bool absolute);
    // Says goodbye and hangs up.
    void close(display_close_reason reason);

private:
    enum class Sent
    {
        yes,
        later,
        gone
    };

    void onReady(uint32_t events);
    void receive();
    void pasteboardCapsChanged(uint32_t caps) override;
    void pasteboardArrived(std::shared_ptr<const SealedMemory> archive) override;
    bool handle(const display_packet &packet, UniqueFd descriptor);
    bool handlePasteboard(int32_t size, UniqueFd memory);
    bool withinRate(double packets);
    void flush();
    void listen();
    void beginSerial();
    bool flushState();
    bool flushPasteboard();
    bool flushDamage();
    Sent send(const display_packet &packet, int fd = -1);
    void hangUp();

    ViewerHost &m_host;
    GuestPasteboard &m_pasteboard;
    UniqueFd m_channel;
    EventSource m_source;
    std::shared_ptr<SharedFrame> m_frame;
    std::shared_ptr<const SealedMemory> m_cursor_memory;
    display_packet m_cursor{};
    ScreenMode m_mode;
    bool m_mode_due = false;
    bool m_cursor_due = false;
    bool m_pointer_due = false;
    bool m_absolute = false;
    bool m_active = true;
    bool m_all_sent = true; // as far as there was room
    bool m_caps_due = false;
    uint32_t m_caps = 0;
    std::shared_ptr<const SealedMemory> m_archive; // not yet sent

    Damage m_damage;              // of m_frame, not yet sent
    uint32_t m_serial = 1;        // of the damage that is being sent
    bool m_awaiting_done = false; // all of it is sent: the viewer owes an answer for it

    ViewerInput m_input;
    Rate m_packets;
};
