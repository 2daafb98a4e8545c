#include "tarvhv/hosted/HostedMachine.h"

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

ChildLaunch child_launch(const SupervisorLaunch &launch)
{
    ChildLaunch result{.program = launch.program, .arguments = start_mode_arguments(launch.mode)};
    result.arguments.insert(result.arguments.begin(), launch.program);
    result.arguments.push_back(launch.id);
    result.out = result.err = launch.log_fd;
    result.life = ChildLife::bound;
    return result;
}

} // namespace

std::unique_ptr<HostedMachine> HostedMachine::start(const SupervisorLaunch &launch)
{
    Child child;
    if (child.start(child_launch(launch)) != 0 || child.watch() < 0)
        return nullptr;
    return std::unique_ptr<HostedMachine>(new HostedMachine(launch.id, std::move(child)));
}

HostedMachine::HostedMachine(const std::string &id, Child child)
    : m_id(id), m_child(std::move(child)), m_ended(m_child.watch(), QSocketNotifier::Read)
{
    m_again.setSingleShot(true);
    m_again.setInterval(ASK_AGAIN_AFTER);
    connect(&m_again, &QTimer::timeout, this, &HostedMachine::tryScreen);
    connect(&m_ended, &QSocketNotifier::activated, this, &HostedMachine::reap);
    m_again.start();
}

HostedMachine::~HostedMachine()
{
    if (m_child.pid() < 0)
        return;
    end();
    m_child.wait(nullptr);
}

void HostedMachine::end()
{
    m_child.signal(SIGINT); // by force: SIGTERM would suspend it
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
    if (m_child.wait(&status) != 0)
        status = -1;
    if (WIFSIGNALED(status))
        display_log("the supervisor of %s was ended by signal %d", m_id.c_str(), WTERMSIG(status));
    Q_EMIT ended(status != 0);
}
