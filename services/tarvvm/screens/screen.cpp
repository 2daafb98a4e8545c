#include "services/tarvvm/screens/screen.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int LISTENER_BUFFER = 1 << 20;
constexpr uint32_t WIDTH_MIN = 640; // below, guests come up with a mode of their own
constexpr uint32_t HEIGHT_MIN = 480;
constexpr uint32_t SIZE_UNKNOWN_WIDTH = 640;
constexpr uint32_t SIZE_UNKNOWN_HEIGHT = 480;
constexpr uint64_t SCANOUT_PATIENCE_MS = 200;
constexpr uint64_t RETRY_MS = 500;
constexpr int32_t MOTION_MAX = 4096;

// Millimetres at 96 pixels an inch, or 192.
uint16_t millimetres(uint32_t pixels, bool hdpi)
{
    return uint16_t(pixels * 254 / (hdpi ? 1920 : 960));
}

} // namespace

Screen::Screen(sd_event *loop, DisplayBus &bus, const Console &console, GuestPasteboard &pasteboard,
               Desktop *desktop, Log log)
    : m_loop(loop),
      m_bus(bus),
      m_console(console),
      m_begun(console),
      m_pasteboard(pasteboard),
      m_desktop(desktop),
      m_log(std::move(log))
{
}

std::unique_ptr<Screen> Screen::create(sd_event *loop, DisplayBus &bus, const Console &console,
                                       bool hdpi, GuestPasteboard &pasteboard, Desktop *desktop,
                                       Log log)
{
    std::unique_ptr<Screen> self(
        new Screen(loop, bus, console, pasteboard, desktop, std::move(log)));
    self->m_mode = {hdpi, /*live_resize=*/true};
    const bool known = console.width != 0 && console.height != 0;
    self->m_feed = ScreenFeed::create(known ? console.width : SIZE_UNKNOWN_WIDTH,
                                      known ? console.height : SIZE_UNKNOWN_HEIGHT);
    if (!self->m_feed)
        return nullptr;
    self->m_frame = self->m_feed->frame();
    Screen *screen = self.get();
    self->m_news = event_io(loop, self->m_feed->newsFd(), EPOLLIN,
                            [screen](uint32_t) { screen->handleNews(); });
    return self;
}

void Screen::addViewer(UniqueFd channel)
{
    ViewerHost &host = *this;
    auto viewer = std::make_unique<Viewer>(m_loop, std::move(channel), m_frame, host, m_pasteboard);
    if (m_has_cursor)
        sendCursor(*viewer);
    m_viewers.push_back(std::move(viewer));
    updateListener();
}

void Screen::close(display_close_reason reason)
{
    m_closing = true;
    for (const auto &viewer : m_viewers)
        viewer->close(reason);
    updateListener();
}

// ---- the listener: registered while somebody looks ----------------------------------------------

void Screen::updateListener()
{
    const bool wanted =
        !m_closing && std::any_of(m_viewers.begin(), m_viewers.end(),
                                  [](const auto &viewer) { return viewer->active(); });
    if (wanted && !m_feed->active() && !m_retry)
        startListener();
    else if (!wanted)
        finishListener();
}

void Screen::finishListener()
{
    m_finishing = m_feed->active();
    m_feed->finish();
}

void Screen::startListener()
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        listenerEnded(std::strerror(errno));
        return;
    }
    const UniqueFd theirs(ends[1]);
    // Best effort: the more of a frame fits, the fewer times QEMU and the feed wait for each other.
    setsockopt(theirs.get(), SOL_SOCKET, SO_SNDBUF, &LISTENER_BUFFER, sizeof LISTENER_BUFFER);
    if (!m_feed->start(UniqueFd(ends[0]))) {
        listenerEnded(std::strerror(errno));
        return;
    }
    // A refusal closes the other end, which the feed's news tell.
    m_bus.registerListener(m_console.index, theirs.get(), [this](const std::string &error) {
        if (!error.empty())
            m_log("screen " + std::to_string(index()) + ": listener refused: " + error);
    });
}

void Screen::listenerEnded(const std::string &error)
{
    if (!error.empty())
        m_log("screen " + std::to_string(index()) + ": " + error);
    if (sizeDiffers() && m_console.width != 0 && m_console.height != 0 &&
        m_feed->resize(m_console.width, m_console.height))
        frameChanged(m_feed->frame());
    if (std::exchange(m_finishing, false)) {
        updateListener();
        return;
    }
    m_retry = event_timer(m_loop, RETRY_MS, [this] {
        m_retry.reset();
        updateListener();
    });
}

void Screen::handleNews()
{
    const ScreenNews news = m_feed->takeNews();
    if (news.frame != m_frame)
        frameChanged(news.frame);
    if (!news.damage.empty())
        for (const auto &viewer : m_viewers)
            viewer->addDamage(news.damage);
    if (news.cursor)
        setCursor(*news.cursor);
    if (news.ended)
        listenerEnded(news.error);
}

void Screen::frameChanged(std::shared_ptr<SharedFrame> frame)
{
    m_frame = std::move(frame);
    if (m_last_hint) {
        m_mode.hdpi = m_last_hint->hdpi;
        if (m_last_hint->width != m_frame->width() || m_last_hint->height != m_frame->height())
            m_last_hint.reset();
    }
    broadcastMode();
}

void Screen::broadcastMode()
{
    for (const auto &viewer : m_viewers)
        viewer->setFrame(m_frame, m_mode);
}

// ---- what QEMU says -----------------------------------------------------------------------------

void Screen::consoleChanged(const ConsoleChange &change)
{
    m_console.width = change.width.value_or(m_console.width);
    m_console.height = change.height.value_or(m_console.height);
    // QEMU shows a screen that the guest does not use in the size that it began with.
    m_used = m_used || m_console.width != m_begun.width || m_console.height != m_begun.height;
    if (m_used && m_desktop)
        m_desktop->setSize(m_console.index, m_console.width, m_console.height);
    if (change.absolute && *change.absolute != m_console.absolute) {
        m_console.absolute = *change.absolute;
        for (const auto &viewer : m_viewers)
            viewer->setAbsolute(m_console.absolute);
    }
    // A change into a text mode brings no whole picture; one that comes needs no help.
    if (sizeDiffers())
        m_size_check = event_timer(m_loop, SCANOUT_PATIENCE_MS, [this] { checkSize(); });
}

bool Screen::sizeDiffers() const
{
    return m_console.width != m_frame->width() || m_console.height != m_frame->height();
}

void Screen::checkSize()
{
    m_size_check.reset();
    if (sizeDiffers() && m_feed->active())
        finishListener(); // a new one is sent the whole picture
}

void Screen::setCursor(const CursorImage &image)
{
    m_has_cursor = true;
    m_cursor = {};
    m_cursor_memory.reset();
    if (!image.pixels.empty()) {
        const char *pixels = reinterpret_cast<const char *>(image.pixels.data());
        SealedMemory memory = platform_memory_of("tarv-pointer", {pixels, image.pixels.size()});
        if (memory) {
            m_cursor_memory = std::make_shared<SealedMemory>(std::move(memory));
            m_cursor = {image.width, image.height, image.hot_x, image.hot_y, {}};
        } else {
            m_log("no memory for the pointer's image: " + std::string(std::strerror(errno)));
        }
    }
    for (const auto &viewer : m_viewers)
        sendCursor(*viewer);
}

void Screen::sendCursor(Viewer &viewer)
{
    viewer.setCursor(m_cursor_memory, m_cursor);
}

// ---- what viewers ask ---------------------------------------------------------------------------

void Screen::viewerActivityChanged()
{
    updateListener();
}

void Screen::viewerKey(uint32_t number, bool down)
{
    m_bus.key(m_console.index, number, down);
}

void Screen::viewerButton(uint32_t number, bool down)
{
    if (m_desktop)
        m_desktop->button(number, down);
    else
        m_bus.button(m_console.index, number, down);
}

void Screen::viewerMoveTo(int32_t x, int32_t y)
{
    if (!m_console.absolute || m_bus.congested() || m_console.width == 0 || m_console.height == 0)
        return;
    x = std::clamp(x, 0, int32_t(m_console.width) - 1);
    y = std::clamp(y, 0, int32_t(m_console.height) - 1);
    if (m_desktop)
        m_desktop->moveTo(m_console.index, x, y);
    else
        m_bus.moveTo(m_console.index, uint32_t(x), uint32_t(y));
}

void Screen::viewerMoveBy(int32_t dx, int32_t dy)
{
    if (!m_console.absolute && !m_bus.congested())
        m_bus.moveBy(m_console.index, std::clamp(dx, -MOTION_MAX, MOTION_MAX),
                     std::clamp(dy, -MOTION_MAX, MOTION_MAX));
}

void Screen::viewerResize(int32_t width, int32_t height, bool hdpi)
{
    requestSize(width, height, hdpi);
}

void Screen::requestSize(int32_t width, int32_t height, bool hdpi)
{
    const Hint hint{std::clamp(uint32_t(std::max(width, 0)), WIDTH_MIN, DISPLAY_WIDTH_MAX),
                    std::clamp(uint32_t(std::max(height, 0)), HEIGHT_MIN, DISPLAY_HEIGHT_MAX),
                    hdpi};
    const Hint current{m_frame->width(), m_frame->height(), m_mode.hdpi};
    if (hint == m_last_hint || (hint == current && !m_last_hint))
        return;
    m_last_hint = hint;
    // No new picture comes for a size that the guest has already.
    if (hint.width == current.width && hint.height == current.height && hint != current) {
        m_mode.hdpi = hdpi;
        broadcastMode();
    }
    sendSize(hint.width, hint.height, hdpi);
}

void Screen::plugIn(uint32_t width, uint32_t height)
{
    // No change of size will tell that the guest uses it.
    m_used = width == m_begun.width && height == m_begun.height;
    if (m_used && m_desktop)
        m_desktop->setSize(m_console.index, width, height);
    m_last_hint = {width, height, m_mode.hdpi};
    sendSize(width, height, m_mode.hdpi);
}

void Screen::keepSize()
{
    sendSize(m_console.width, m_console.height, m_mode.hdpi);
}

void Screen::sendSize(uint32_t width, uint32_t height, bool hdpi)
{
    m_bus.setSize(m_console.index, millimetres(width, hdpi), millimetres(height, hdpi), width,
                  height, [this](const std::string &error) {
                      if (error.empty() || !m_mode.live_resize)
                          return;
                      m_log("screen " + std::to_string(index()) + ": no other size: " + error);
                      m_mode.live_resize = false;
                      broadcastMode();
                  });
}

void Screen::viewerGone()
{
    // The viewer is on the stack now.
    m_sweep = event_defer(m_loop, [this] {
        std::erase_if(m_viewers, [](const auto &viewer) { return viewer->gone(); });
        updateListener();
    });
}
