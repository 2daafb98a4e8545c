#include "tarvhv/display/DisplayConnector.h"

#include "tarvhv/display/ChannelDisplay.h"

#include <algorithm>
#include <cerrno>

namespace {

using std::chrono::milliseconds;

constexpr milliseconds ASYNC_LIMIT{10000};
constexpr milliseconds SYNC_LIMIT{1000};

} // namespace

DisplayConnector::DisplayConnector(const QString &path, unsigned index, QObject *parent,
                                   Handler handler)
    : QObject(parent),
      m_path(path),
      m_handshake(path.toStdString(), index, ASYNC_LIMIT),
      m_handler(std::move(handler))
{
    m_wake.setSingleShot(true);
    connect(&m_wake, &QTimer::timeout, this, &DisplayConnector::advance);
    m_wake.start(0); // the handler is never called before the caller is done
}

void DisplayConnector::advance()
{
    if (m_notifier)
        m_notifier->setEnabled(false);
    switch (m_handshake.advance()) {
    case DisplayHandshake::Step::retry:
        break;
    case DisplayHandshake::Step::writing:
        waitFor(QSocketNotifier::Write);
        break;
    case DisplayHandshake::Step::reading:
        waitFor(QSocketNotifier::Read);
        break;
    case DisplayHandshake::Step::done:
        return finish(std::make_unique<ChannelDisplay>(m_path, *m_handshake.take()), 0);
    case DisplayHandshake::Step::failed:
        return finish(nullptr, m_handshake.error());
    }
    if (const Cli2Deadline wake = m_handshake.wakeAt())
        m_wake.start(
            std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*wake - Cli2Clock::now())));
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
    m_wake.stop();
    if (m_notifier)
        m_notifier->setEnabled(false);
    deleteLater();
    m_handler(std::move(display), error);
}

std::unique_ptr<TarvDisplay> TarvDisplayCreate(const QString &path, unsigned index)
{
    DisplayHandshake handshake(path.toStdString(), index, SYNC_LIMIT);
    for (;;) {
        const DisplayHandshake::Step step = handshake.advance();
        if (step == DisplayHandshake::Step::done)
            return std::make_unique<ChannelDisplay>(path, *handshake.take());
        if (step == DisplayHandshake::Step::failed) {
            errno = handshake.error();
            return nullptr;
        }
        cli2_wait(handshake.fd(), handshake.events(), handshake.wakeAt());
    }
}

void TarvDisplayCreateAsync(const QString &path, unsigned index, QObject *context,
                            std::function<void(std::unique_ptr<TarvDisplay>, int error)> handler)
{
    new DisplayConnector(path, index, context, std::move(handler));
}
