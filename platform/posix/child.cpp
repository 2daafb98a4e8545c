#include "platform/child.h"

#include "platform/posix/child_start.h"
#include "platform/process.h"
#include "platform/watch.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <utility>

namespace {

int wait_for(pid_t pid, int *status)
{
    pid_t result;
    do
        result = waitpid(pid, status, 0);
    while (result < 0 && errno == EINTR);
    return result == pid ? 0 : -1;
}

std::vector<char *> pointers(const std::vector<std::string> &texts)
{
    std::vector<char *> result;
    result.reserve(texts.size() + 1);
    // exec's texts are not const for historical reasons alone.
    for (const std::string &text : texts)
        result.push_back(const_cast<char *>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

} // namespace

Child::Child(Child &&other) noexcept
{
    *this = std::move(other);
}

Child &Child::operator=(Child &&other) noexcept
{
    if (this != &other) {
        reset();
        m_pid = std::exchange(other.m_pid, -1);
        m_watch = std::move(other.m_watch);
        m_gate = std::move(other.m_gate);
        m_report = std::move(other.m_report);
    }
    return *this;
}

Child::~Child()
{
    reset();
}

void Child::reset()
{
    if (m_pid <= 0)
        return;
    const int saved = errno;
    // A held child ends by itself: its gate closes. A signal could only meet it earlier.
    if (!m_gate)
        signal(SIGKILL);
    m_gate.reset();
    wait_for(std::exchange(m_pid, -1), nullptr);
    errno = saved;
}

int Child::start(const ChildLaunch &launch)
{
    ChildStart started;
    if (!child_start(launch, &started))
        return -1;
    m_pid = started.pid;
    m_gate = std::move(started.gate);
    m_report = std::move(started.report);
    return 0;
}

int Child::go()
{
    const char byte = 1;
    ssize_t put;
    do
        put = write(m_gate.get(), &byte, 1);
    while (put < 0 && errno == EINTR);
    m_gate.reset();
    const int error = child_report(m_report.get());
    m_report.reset();
    if (error == 0 && put == 1)
        return 0;
    wait_for(std::exchange(m_pid, -1), nullptr);
    errno = error != 0 ? error : ECHILD;
    return -1;
}

int Child::watch()
{
    if (!m_watch)
        m_watch.reset(platform_watch_process(m_pid));
    return m_watch.get();
}

void Child::signal(int number) const
{
    // It is our child and was not waited for: the pid is still its own.
    if (m_pid > 0)
        kill(m_pid, number);
}

int Child::wait(int *status)
{
    return wait_for(std::exchange(m_pid, -1), status);
}

bool Child::ended(int *status)
{
    if (m_pid <= 0 || waitpid(m_pid, status, WNOHANG) != m_pid)
        return false;
    m_pid = -1;
    return true;
}

pid_t Child::release()
{
    return std::exchange(m_pid, -1);
}

int child_exit_status(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int child_report(int fd)
{
    int error = 0;
    ssize_t count;
    do
        count = read(fd, &error, sizeof error);
    while (count < 0 && errno == EINTR);
    return count == sizeof error ? error : 0;
}

ChildTexts::ChildTexts(const ChildLaunch &launch) : m_argv(pointers(launch.arguments))
{
    if (launch.environment)
        m_envp = pointers(*launch.environment);
}

char *const *ChildTexts::envp() const
{
    return m_envp.empty() ? platform_environment() : m_envp.data();
}
