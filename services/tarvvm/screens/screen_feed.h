// Hands a screen's pixels from the thread that receives them to the event loop.
#pragma once

#include "services/tarvvm/screens/listener_reader.h"
#include "services/tarvvm/screens/shared_frame.h"
#include "tarvhv/cli2/damage.h"

#include "platform/unique_fd.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// What happened since the last look.
struct ScreenNews
{
    std::shared_ptr<SharedFrame> frame; // the present one
    Damage damage;                      // of that frame
    std::optional<CursorImage> cursor;  // a new image of the pointer; without size: none is shown
    bool ended = false;                 // the listener's connection is closed and its thread done
    std::string error;                  // why, if not as asked
};

// One screen's listener. Pixels are received by a thread of their own for QEMU's sake. It has no
// flow control towards a listener: what is not read at once piles up in QEMU's memory, and its main
// loop, with it the guest, waits for the introduction of a new listener. On the event loop a slow
// log or a large pasteboard would be paid for there. A thread can also block in one read for a
// whole picture, which goes into the frame buffer without another copy. It touches the frame buffer
// and nothing else; what it has to tell goes under a lock into ScreenNews, where what the loop has
// not taken yet is merged, and an eventfd wakes the loop.
//
// All functions but the sink's are of the event loop's thread.
class ScreenFeed : private ListenerSink
{
public:
    // Null with errno set.
    static std::unique_ptr<ScreenFeed> create(uint32_t width, uint32_t height);
    ~ScreenFeed() override;

    // Starts receiving on a socket whose other end is given to QEMU after this. The thread must be
    // there first: QEMU's main loop waits for the handshake. False with errno set.
    bool start(UniqueFd socket);
    // Asks QEMU to let go of the listener. The news say when it did; start() only then.
    void finish();
    bool active() const { return m_thread.joinable(); }

    // Polls readable when there is news.
    int newsFd() const { return m_event.get(); }
    ScreenNews takeNews();
    std::shared_ptr<SharedFrame> frame() const;
    // Another size with the same top left; only while not active. False with errno set.
    bool resize(uint32_t width, uint32_t height);

private:
    ScreenFeed() = default;

    PixelTarget scanout(uint32_t width, uint32_t height) override;
    PixelTarget update(const ScreenRect &rect) override;
    void painted(const ScreenRect &rect) override;
    void blank() override;
    void cursorDefined(CursorImage image) override;
    void cursorShown(bool shown) override;
    bool send(const std::string &bytes) override;

    void run();
    void setFrame(std::shared_ptr<SharedFrame> frame);
    template <typename Change>
    void tell(Change change);

    UniqueFd m_event;
    UniqueFd m_socket;
    std::thread m_thread;

    mutable std::mutex m_lock; // of the two below
    ScreenNews m_news;
    bool m_told = false;

    // Of the receiving thread.
    std::shared_ptr<SharedFrame> m_frame;
    CursorImage m_cursor;
    bool m_cursor_shown = true;
};
