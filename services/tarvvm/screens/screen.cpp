#include "services/tarvvm/screens/screen.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr int LISTENER_BUFFER = 1 << 20;
constexpr uint32_t SIZE_UNKNOWN_WIDTH = 640;
constexpr uint32_t SIZE_UNKNOWN_HEIGHT = 480;
constexpr uint64_t SCANOUT_PATIENCE_MS = 200;
constexpr uint64_t RETRY_MS = 500;
constexpr std::chrono::milliseconds LISTENER_SETTLED(RETRY_MS);

} // namespace

Screen::Screen(sd_event *loop, DisplayBus &bus, const Console &console, bool hdpi,
               GuestPasteboard &pasteboard, Desktop *desktop, InputGate &gate, Log log)
    : m_loop(loop),
      m_bus(bus),
      m_console(console),
      m_begun(console),
      m_pasteboard(pasteboard),
      m_desktop(desktop),
      m_gate(gate),
      m_log(std::move(log)),
      m_input(bus, m_console, desktop, gate),
      m_size(
          bus, console.index, hdpi, [this] { broadcastMode(); },
          [this](const std::string &line) { this->log(line); })
{
}

void Screen::log(const std::string &line)
{
    m_log("screen " + std::to_string(index()) + ": " + line);
}

std::unique_ptr<Screen> Screen::create(sd_event *loop, DisplayBus &bus, const Console &console,
                                       bool hdpi, GuestPasteboard &pasteboard, Desktop *desktop,
                                       InputGate &gate, Log log)
{
    std::unique_ptr<Screen> self(
        new Screen(loop, bus, console, hdpi, pasteboard, desktop, gate, std::move(log)));
    const bool known = console.width != 0 && console.height != 0;
    self->m_feed = ScreenFeed::create(known ? console.width : SIZE_UNKNOWN_WIDTH,
                                      known ? console.height : SIZE_UNKNOWN_HEIGHT);
    if (!self->m_feed)
        return nullptr;
    self->m_frame = self->m_feed->frame();
    self->m_size.pictureIs(self->m_frame->width(), self->m_frame->height());
    Screen *screen = self.get();
    self->m_news = event_io(loop, self->m_feed->newsFd(), EPOLLIN,
                            [screen](uint32_t) { screen->handleNews(); });
    return self;
}

void Screen::addViewer(UniqueFd channel)
{
    ViewerHost &host = *this;
    auto viewer = std::make_unique<Viewer>(m_loop, std::move(channel), m_frame, host, m_input,
                                           m_gate, m_pasteboard);
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

// QEMU pays for a listener with a copy of each change and with the time in which it is taken, so
// there is one only while somebody looks. It never lets two follow each other closely: an end that
// was asked for comes back as news, and only then is it decided anew whether one is wanted.
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
    m_begun_listening = std::chrono::steady_clock::now();
    // Best effort: the more of a frame fits, the fewer times QEMU and the feed wait for each other.
    setsockopt(theirs.get(), SOL_SOCKET, SO_SNDBUF, &LISTENER_BUFFER, sizeof LISTENER_BUFFER);
    if (!m_feed->start(UniqueFd(ends[0]))) {
        listenerEnded(std::strerror(errno));
        return;
    }
    // A refusal closes the other end, which the feed's news tell.
    m_bus.registerListener(m_console.index, theirs.get(), [this](const ServiceFailure &failure) {
        if (failure)
            log("listener refused: " + failure.text);
    });
}

void Screen::listenerEnded(const std::string &error)
{
    if (!error.empty())
        log(error);
    if (sizeDiffers() && m_console.width != 0 && m_console.height != 0 &&
        m_feed->resize(m_console.width, m_console.height))
        frameChanged(m_feed->frame());
    // A viewer that hides and shows without end gets a listener no more often than one that fails:
    // each makes QEMU's main loop wait for an introduction.
    const bool settled = std::chrono::steady_clock::now() - m_begun_listening > LISTENER_SETTLED;
    if (std::exchange(m_finishing, false) && settled) {
        updateListener();
        return;
    }
    m_retry = event_timer(m_loop, RETRY_MS, [this] {
        m_retry.reset();
        updateListener();
    });
}

// The frame comes first: the damage of the same news is that of this frame, never of the one
// before. QEMU tells a new size twice, here with the pixels and in the console's properties, in
// either order. The pixels decide; the properties help where pixels of that size never come
// (checkSize).
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
    m_size.pictureIs(m_frame->width(), m_frame->height());
    broadcastMode();
}

void Screen::broadcastMode()
{
    for (const auto &viewer : m_viewers)
        viewer->setFrame(m_frame, m_size.mode());
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
    // A change into a text mode brings no whole picture, only parts as the text changes. One that
    // does come is there soon and needs no help.
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
            log("no memory for the pointer's image: " + std::string(std::strerror(errno)));
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

void Screen::plugIn(uint32_t width, uint32_t height)
{
    // No change of size will tell that the guest uses it.
    m_used = width == m_begun.width && height == m_begun.height;
    if (m_used && m_desktop)
        m_desktop->setSize(m_console.index, width, height);
    m_size.plugIn(width, height);
}

void Screen::viewerGone()
{
    // The viewer is on the stack now.
    m_sweep = event_defer(m_loop, [this] {
        std::erase_if(m_viewers, [](const auto &viewer) { return viewer->gone(); });
        updateListener();
    });
}
