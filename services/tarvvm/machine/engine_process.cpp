#include "services/tarvvm/machine/engine_process.h"

#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr size_t WORDS_LINE_MAX = 4096;
// Bytes of the serial port. A line of 115,200 baud brings 11,520 a second; a verbose boot comes at
// once.
constexpr double CONSOLE_PER_SECOND = 16 * 1024;
constexpr double CONSOLE_AT_ONCE = 256 * 1024;

bool socket_pair(UniqueFd *ours, UniqueFd *theirs)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    ours->reset(ends[0]);
    theirs->reset(ends[1]);
    return true;
}

bool set_nonblocking(int fd)
{
    return fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) == 0;
}

std::string end_text(int status)
{
    if (WIFSIGNALED(status))
        return "the engine was killed by signal " + std::to_string(WTERMSIG(status));
    return "the engine ended with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

EngineProcess::EngineProcess(sd_event *loop, VmLog &log,
                             std::function<void(const EngineEnd &)> ended)
    : m_log(log),
      m_ended(std::move(ended)),
      m_console_rate(CONSOLE_PER_SECOND, CONSOLE_AT_ONCE),
      m_loop(loop)
{
}

bool EngineProcess::Channels::make()
{
    return socket_pair(&monitor, &engine_monitor) && socket_pair(&console, &engine_console) &&
           socket_pair(&agent, &engine_agent) && set_nonblocking(monitor.get()) &&
           set_nonblocking(console.get()) && set_nonblocking(agent.get());
}

std::unique_ptr<EngineProcess> EngineProcess::start(sd_event *loop, const Launch &launch,
                                                    Channels *channels, VmLog &log,
                                                    std::function<void(const EngineEnd &)> ended)
{
    std::unique_ptr<EngineProcess> self(new EngineProcess(loop, log, std::move(ended)));
    UniqueFd words_end;
    if (platform_pipe(&self->m_words, &words_end) != 0)
        return nullptr;
    ChildLaunch plan{.program = launch.program,
                     .arguments = launch.arguments,
                     .environment = launch.environment,
                     .out = words_end.get(),
                     .err = words_end.get(),
                     .kept = {channels->engine_monitor.get(), channels->engine_console.get(),
                              channels->engine_agent.get()},
                     .life = ChildLife::bound,
                     // At the end of a session every process of it gets these. QEMU would end its
                     // guest at once, unasked, while the supervisor is still suspending it.
                     .blocked = {SIGTERM, SIGHUP}};
    plan.arguments.insert(plan.arguments.begin(), launch.program);
    if (self->m_child.start(plan) != 0)
        return nullptr;
    channels->engine_monitor.reset();
    channels->engine_console.reset();
    channels->engine_agent.reset();
    self->m_console = std::move(channels->console);
    if (self->m_child.watch() < 0 || !set_nonblocking(self->m_words.get()))
        return nullptr;
    EngineProcess *engine = self.get();
    self->m_watch_source =
        event_io(loop, self->m_child.watch(), EPOLLIN, [engine](uint32_t) { engine->onEnd(); });
    self->m_words_source =
        event_io(loop, self->m_words.get(), EPOLLIN, [engine](uint32_t) { engine->readWords(); });
    self->m_console_source = event_io(loop, self->m_console.get(), EPOLLIN, [engine](uint32_t) {
        engine->readConsole();
        engine->pauseConsole();
    });
    return self;
}

int64_t EngineProcess::processorTime() const
{
    clockid_t clock;
    timespec used;
    if (pid() <= 0 || clock_getcpuclockid(pid(), &clock) != 0 || clock_gettime(clock, &used) != 0)
        return -1;
    return int64_t(used.tv_sec) * 1000 + used.tv_nsec / 1000000;
}

void EngineProcess::readWords()
{
    char buffer[4096];
    const ssize_t length = read(m_words.get(), buffer, sizeof buffer);
    if (length > 0)
        takeWords({buffer, size_t(length)});
    else if (length == 0 || errno != EAGAIN)
        m_words_source.reset();
}

void EngineProcess::takeWords(std::string_view bytes)
{
    for (const char c : bytes) {
        if (c != '\n' && c != '\r')
            m_line += c;
        if ((c != '\n' && m_line.size() < WORDS_LINE_MAX) || m_line.empty())
            continue;
        m_log.line("engine: " + m_line);
        m_words_before = std::exchange(m_last_words, std::exchange(m_line, {}));
    }
}

bool EngineProcess::readConsole()
{
    char buffer[4096];
    const ssize_t length = read(m_console.get(), buffer, sizeof buffer);
    if (length > 0) {
        m_console_rate.take(double(length));
        m_log.console({buffer, size_t(length)});
    } else if (length == 0 || errno != EAGAIN)
        m_console_source.reset();
    return length > 0;
}

// QEMU sends a guest's output byte by byte, each of which would wake this process. A guest that
// prints faster than a line could carry is left to fill the socket meanwhile: its serial port is
// then busy, as a real one would be, and nothing of it is lost.
void EngineProcess::pauseConsole()
{
    const double wait = m_console_rate.wait();
    if (wait <= 0 || !m_console_source)
        return;
    sd_event_source_set_enabled(m_console_source.get(), SD_EVENT_OFF);
    m_console_pause = event_timer(m_loop, uint64_t(std::max(wait, 20.0)), [this] {
        if (m_console_source)
            sd_event_source_set_enabled(m_console_source.get(), SD_EVENT_ON);
    });
}

void EngineProcess::onEnd()
{
    int status = 0;
    if (!m_child.ended(&status))
        return;
    m_watch_source.reset();
    while (m_words_source) {
        char buffer[4096];
        const ssize_t length = read(m_words.get(), buffer, sizeof buffer);
        if (length <= 0)
            m_words_source.reset();
        else
            takeWords({buffer, size_t(length)});
    }
    takeWords("\n");
    while (readConsole())
        ;
    EngineEnd end{child_exit_status(status), end_text(status)};
    if (end.status != 0 && !m_last_words.empty())
        // A helper of QEMU's says what is wrong, and QEMU then only that it failed.
        end.message += ": " + m_words_before + (m_words_before.empty() ? "" : "; ") + m_last_words;
    m_ended(end);
}
