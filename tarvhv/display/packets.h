// What a viewer knows of its screen, kept up with the supervisor's packets. No sockets, no Qt.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/damage.h"
#include "tarvhv/display/mapped_frame.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The pointer image of a guest: premultiplied ARGB32, top row first.
struct GuestCursor
{
    int width = 0; // 0: none of ours to show
    int height = 0;
    int hot_x = 0;
    int hot_y = 0;
    std::vector<uint32_t> pixels;
};

// What packets changed since the last look, beside the picture.
struct DisplayChanges
{
    bool mode = false;  // another frame buffer
    bool frame = false; // pixels of it changed; another one is all changed
    bool pointer_mode = false;
    bool caps = false;
    std::optional<GuestCursor> cursor;
    std::optional<std::string> pasteboard; // an archive
};

class DisplayState
{
public:
    DisplayState(MappedFrame buffer, bool hdpi, bool live_resize, uint32_t caps, bool absolute);

    // Takes one packet in. False when it breaks the protocol: what() says how, and the state is as
    // before.
    bool feed(const display_packet &packet, UniqueFd descriptor);
    const char *what() const { return m_what; }
    DisplayChanges takeChanges();
    // What of the picture changed since it was last taken to be painted.
    Damage &damage() { return m_damage; }
    // The serial of complete damage that was not answered yet.
    std::optional<int32_t> takeSerial();

    const MappedFrame &buffer() const { return m_buffer; }
    bool hdpi() const { return m_hdpi; }
    bool liveResize() const { return m_live_resize; }
    uint32_t caps() const { return m_caps; }
    bool absolute() const { return m_absolute; }
    bool closed() const { return m_closed; }

private:
    bool feedDamage(const display_packet &packet);
    bool feedMode(const display_packet &packet, int descriptor);
    bool feedCursor(const display_packet &packet, int descriptor);
    bool feedPasteboard(const display_packet &packet, int descriptor);
    bool refuse(const char *what);

    MappedFrame m_buffer;
    bool m_hdpi;
    bool m_live_resize;
    uint32_t m_caps;
    bool m_absolute;
    bool m_closed = false;
    std::optional<int32_t> m_serial;
    DisplayChanges m_changes;
    Damage m_damage;
    const char *m_what = "";
};
