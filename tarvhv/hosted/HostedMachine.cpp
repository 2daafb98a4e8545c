#include "tarvhv/hosted/HostedMachine.h"

#include "platform/process.h"
#include "platform/watch.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/log.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// How often a starting VM is asked for its first screen.
constexpr std::chrono::milliseconds ASK_AGAIN_AFTER{100};

pid_t wait_for(pid_t pid, int *status)
{
    pid_t result;
    do
        result = waitpid(pid, status, 0);
    while (result < 0 && errno == EINTR);
    return result;
}

pid_t spawn(const SupervisorLaunch &launch)
{
    std::vector<std::string> words = start_mode_arguments(launch.mode);
    words.insert(words.begin(), launch.program);
    words.push_back(launch.id);
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    platform_launch plan{};
    plan.path = launch.program.c_str();
    plan.argv = arguments.data();
    plan.envp = environ;
    plan.stdout_fd = launch.log_fd;
    plan.stderr_fd = launch.log_fd;
    return platform_spawn_bound(plan, nullptr, 0);
}

} // namespace

std::unique_ptr<HostedMachine> HostedMachine::start(const SupervisorLaunch &launch)
{
    const pid_t pid = spawn(launch);
    if (pid < 0)
        return nullptr;
    UniqueFd watch(platform_watch_process(pid));
    if (!watch) {
        const int error = errno;
        kill(pid, SIGKILL); // a child that was not waited for: the pid is still its own
        wait_for(pid, nullptr);
        errno = error;
        return nullptr;
    }
    return std::unique_ptr<HostedMachine>(new HostedMachine(launch.id, pid, std::move(watch)));
}

HostedMachine::HostedMachine(const std::string &id, pid_t pid, UniqueFd watch)
    : m_id(id), m_pid(pid), m_watch(std::move(watch)), m_ended(m_watch.get(), QSocketNotifier::Read)
{
    m_again.setSingleShot(true);
    m_again.setInterval(ASK_AGAIN_AFTER);
    connect(&m_again, &QTimer::timeout, this, &HostedMachine::tryScreen);
    connect(&m_ended, &QSocketNotifier::activated, this, &HostedMachine::reap);
    m_again.start();
}

HostedMachine::~HostedMachine()
{
    if (m_pid < 0)
        return;
    end();
    wait_for(m_pid, nullptr);
}

void HostedMachine::end()
{
    if (m_pid >= 0)
        platform_watch_signal(m_watch.get(), SIGTERM);
}

void HostedMachine::tryScreen()
{
    const QString path = QString::fromStdString(place_vm_socket(m_id));
    TarvDisplayCreateAsync(path, 0, this, [this](std::unique_ptr<TarvDisplay> display, int) {
        if (display)
            Q_EMIT started();
        else
            m_again.start();
    });
}

void HostedMachine::reap()
{
    m_ended.setEnabled(false);
    m_again.stop();
    int status = 0;
    if (wait_for(m_pid, &status) < 0)
        status = -1;
    m_pid = -1;
    if (WIFSIGNALED(status))
        display_log("the supervisor of %s was ended by signal %d", m_id.c_str(), WTERMSIG(status));
    Q_EMIT ended(status != 0);
}
