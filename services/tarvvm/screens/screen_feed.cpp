#include "services/tarvvm/screens/screen_feed.h"

#include "platform/socket.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class SocketInput : public WireInput
{
public:
    explicit SocketInput(int fd) : m_fd(fd) {}

    bool read(iovec *parts, int count) override
    {
        while (count > 0) {
            msghdr message{};
            message.msg_iov = parts;
            message.msg_iovlen = size_t(count);
            ssize_t length = recvmsg(m_fd, &message, MSG_WAITALL);
            if (length < 0 && errno == EINTR)
                continue;
            if (length <= 0)
                return false;
            // A signal may cut a read short.
            for (; count > 0 && size_t(length) >= parts->iov_len; parts++, count--)
                length -= ssize_t(parts->iov_len);
            if (count > 0) {
                parts->iov_base = static_cast<uint8_t *>(parts->iov_base) + length;
                parts->iov_len -= size_t(length);
            }
        }
        return true;
    }

private:
    int m_fd;
};

} // namespace

std::unique_ptr<ScreenFeed> ScreenFeed::create(uint32_t width, uint32_t height)
{
    std::unique_ptr<ScreenFeed> feed(new ScreenFeed);
    feed->m_event.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    feed->m_frame = feed->m_news.frame = SharedFrame::create(width, height);
    feed->m_news.damage.reset(width, height);
    if (!feed->m_event || !feed->m_frame)
        return nullptr;
    return feed;
}

ScreenFeed::~ScreenFeed()
{
    if (m_thread.joinable()) {
        shutdown(m_socket.get(), SHUT_RDWR);
        m_thread.join();
    }
}

bool ScreenFeed::start(UniqueFd socket)
{
    m_socket = std::move(socket);
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error &failure) {
        errno = failure.code().value();
        m_socket.reset();
        return false;
    }
    return true;
}

void ScreenFeed::finish()
{
    // QEMU must see the end and let go before another listener comes: replacing one whose end it
    // has not handled yet leaves it with a dangling listener. It closes its end when it has.
    if (m_thread.joinable())
        shutdown(m_socket.get(), SHUT_WR);
}

void ScreenFeed::run()
{
    SocketInput input(m_socket.get());
    ListenerReader reader(input, *this);
    bool alive = reader.authenticate(geteuid());
    while (alive)
        alive = reader.readMessage();
    // A broken stream is closed at once: QEMU would wait for it to be read.
    shutdown(m_socket.get(), SHUT_RDWR);
    tell([&](ScreenNews &news) {
        news.ended = true;
        news.error = reader.error();
    });
}

template <typename Change>
void ScreenFeed::tell(Change change)
{
    const std::lock_guard guard(m_lock);
    change(m_news);
    if (!std::exchange(m_told, true)) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_event.get(), &one, sizeof one);
    }
}

ScreenNews ScreenFeed::takeNews()
{
    ScreenNews news;
    {
        const std::lock_guard guard(m_lock);
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t length = read(m_event.get(), &count, sizeof count);
        m_told = false;
        news = std::exchange(m_news, {});
        m_news.frame = news.frame;
        m_news.damage.reset(news.frame->width(), news.frame->height());
    }
    if (news.ended) {
        m_thread.join();
        m_socket.reset();
    }
    return news;
}

std::shared_ptr<SharedFrame> ScreenFeed::frame() const
{
    const std::lock_guard guard(m_lock);
    return m_news.frame;
}

bool ScreenFeed::resize(uint32_t width, uint32_t height)
{
    std::shared_ptr<SharedFrame> frame = m_frame->resized(width, height);
    if (!frame)
        return false;
    setFrame(std::move(frame));
    return true;
}

// A change of size is another frame buffer, as viewers have the old one mapped. Damage of the old
// one goes: all of the new one counts as damaged.
void ScreenFeed::setFrame(std::shared_ptr<SharedFrame> frame)
{
    m_frame = frame;
    tell([&](ScreenNews &news) {
        news.damage.reset(frame->width(), frame->height());
        news.frame = std::move(frame);
    });
}

PixelTarget ScreenFeed::scanout(uint32_t width, uint32_t height)
{
    if (m_frame->width() != width || m_frame->height() != height) {
        std::shared_ptr<SharedFrame> frame = SharedFrame::create(width, height);
        if (!frame)
            return {};
        setFrame(std::move(frame));
    }
    return {m_frame->at(0, 0), m_frame->stride()};
}

PixelTarget ScreenFeed::update(const ScreenRect &rect)
{
    // After a change into a text mode parts come without the whole: the screen grows with them.
    const uint32_t width = std::max(m_frame->width(), uint32_t(rect.x + rect.width));
    const uint32_t height = std::max(m_frame->height(), uint32_t(rect.y + rect.height));
    if ((width != m_frame->width() || height != m_frame->height()) && !resize(width, height))
        return {};
    return {m_frame->at(uint32_t(rect.x), uint32_t(rect.y)), m_frame->stride()};
}

// The pixels are in the frame buffer before anybody is told of them: by the release in the counter
// for who watches that, by the lock for the loop and the viewers. So whoever reads a rectangle
// finds the pixels of its damage, or later ones, whose damage is still to come.
void ScreenFeed::painted(const ScreenRect &rect)
{
    m_frame->countFrame();
    tell([&](ScreenNews &news) { news.damage.add(rect); });
}

void ScreenFeed::blank()
{
    m_frame->fillBlack();
    painted({0, 0, int32_t(m_frame->width()), int32_t(m_frame->height())});
}

void ScreenFeed::cursorDefined(CursorImage image)
{
    m_cursor = std::move(image);
    cursorShown(m_cursor_shown);
}

void ScreenFeed::cursorShown(bool shown)
{
    m_cursor_shown = shown;
    tell([&](ScreenNews &news) { news.cursor = shown ? m_cursor : CursorImage(); });
}

bool ScreenFeed::send(const std::string &bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        iovec part{const_cast<char *>(bytes.data()) + done, bytes.size() - done};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const ssize_t length = platform_sendmsg(m_socket.get(), &message, 0);
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return false;
        done += size_t(length);
    }
    return true;
}
