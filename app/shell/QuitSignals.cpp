#include "app/shell/QuitSignals.h"

#include "platform/file.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int QUIT_SIGNALS[] = {SIGTERM, SIGINT, SIGHUP};

std::atomic<int> g_write = -1;

void wake(int)
{
    const int error = errno;
    // A full pipe is as good: the loop is woken already.
    [[maybe_unused]] const ssize_t written = write(g_write, "", 1);
    errno = error;
}

void handle(int number, void (*handler)(int))
{
    struct sigaction before = {};
    if (sigaction(number, nullptr, &before) != 0 || before.sa_handler == SIG_IGN)
        return;
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
}

} // namespace

QuitSignals::QuitSignals(QObject *parent) : QObject(parent)
{
    if (platform_pipe(&m_read, &m_write) != 0)
        return; // they end the process, as they would without this
    fcntl(m_read.get(), F_SETFL, O_NONBLOCK);
    fcntl(m_write.get(), F_SETFL, O_NONBLOCK);
    g_write = m_write.get();
    m_notifier = std::make_unique<QSocketNotifier>(m_read.get(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (read(m_read.get(), bytes, sizeof bytes) > 0)
            ;
        Q_EMIT received();
    });
    for (const int number : QUIT_SIGNALS)
        handle(number, wake);
}

QuitSignals::~QuitSignals()
{
    if (!m_write)
        return;
    for (const int number : QUIT_SIGNALS)
        handle(number, SIG_DFL);
    g_write = -1;
}
