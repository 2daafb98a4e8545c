#include "tarvhv/display/DisplayConnector.h"

#include "tarvhv/display/ChannelDisplay.h"

#include <cerrno>
#include <poll.h>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds ASYNC_LIMIT{10000};
constexpr milliseconds SYNC_LIMIT{1000};
constexpr milliseconds RETRY_AFTER{20}; // a supervisor whose queue of connections is full

// Waits for what a handshake needs. False once the deadline has passed.
bool wait_for(DisplayHandshake::Step step, int fd, std::chrono::steady_clock::time_point deadline)
{
    const auto left =
        std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0)
        return false;
    const bool retry = step == DisplayHandshake::Step::retry;
    pollfd entry{retry ? -1 : fd, short(step == DisplayHandshake::Step::writing ? POLLOUT : POLLIN),
                 0};
    poll(&entry, 1, int(retry ? std::min(left, RETRY_AFTER).count() : left.count()));
    return true;
}

} // namespace

DisplayConnector::DisplayConnector(const QString &path, unsigned index, QObject *parent,
                                   Handler handler)
    : QObject(parent),
      m_path(path),
      m_handshake(path.toStdString(), index),
      m_handler(std::move(handler))
{
    m_deadline.setSingleShot(true);
    m_again.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, [this] { finish(nullptr, ETIMEDOUT); });
    connect(&m_again, &QTimer::timeout, this, &DisplayConnector::advance);
    m_deadline.start(ASYNC_LIMIT);
    m_again.start(0); // the handler is never called before the caller is done
}

void DisplayConnector::advance()
{
    if (m_notifier)
        m_notifier->setEnabled(false); // the handshake closes its socket when it ends
    switch (m_handshake.advance()) {
    case DisplayHandshake::Step::retry:
        m_again.start(RETRY_AFTER);
        break;
    case DisplayHandshake::Step::writing:
        waitFor(QSocketNotifier::Write);
        break;
    case DisplayHandshake::Step::reading:
        waitFor(QSocketNotifier::Read);
        break;
    case DisplayHandshake::Step::done:
        finish(std::make_unique<ChannelDisplay>(m_path, *m_handshake.take()), 0);
        break;
    case DisplayHandshake::Step::failed:
        finish(nullptr, m_handshake.error());
        break;
    }
}

void DisplayConnector::waitFor(QSocketNotifier::Type type)
{
    if (m_notifier && m_notifier->type() == type) {
        m_notifier->setEnabled(true);
        return;
    }
    if (m_notifier)
        m_notifier.release()->deleteLater(); // it may be what called
    m_notifier = std::make_unique<QSocketNotifier>(m_handshake.fd(), type);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &DisplayConnector::advance);
}

void DisplayConnector::finish(std::unique_ptr<TarvDisplay> display, int error)
{
    m_deadline.stop();
    m_again.stop();
    if (m_notifier)
        m_notifier->setEnabled(false);
    deleteLater();
    m_handler(std::move(display), error);
}

std::unique_ptr<TarvDisplay> TarvDisplayCreate(const QString &path, unsigned index)
{
    const auto deadline = std::chrono::steady_clock::now() + SYNC_LIMIT;
    DisplayHandshake handshake(path.toStdString(), index);
    for (;;) {
        const DisplayHandshake::Step step = handshake.advance();
        if (step == DisplayHandshake::Step::done)
            return std::make_unique<ChannelDisplay>(path, *handshake.take());
        if (step == DisplayHandshake::Step::failed) {
            errno = handshake.error();
            return nullptr;
        }
        if (!wait_for(step, handshake.fd(), deadline)) {
            errno = ETIMEDOUT;
            return nullptr;
        }
    }
}

void TarvDisplayCreateAsync(const QString &path, unsigned index, QObject *context,
                            std::function<void(std::unique_ptr<TarvDisplay>, int error)> handler)
{
    new DisplayConnector(path, index, context, std::move(handler));
}
