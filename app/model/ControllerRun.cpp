#include "app/model/ControllerRun.h"

#include "app/kit/NotificationCenter.h"
#include "platform/watch.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>

#include <algorithm>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A command's own children may hold its output open; they are not waited for.
constexpr int AFTER_END_MS = 2000;

// All runs whose end has not been delivered, and where ends are posted to. Never destroyed, since a
// run's thread may end after the application object. An end that comes then is delivered to nobody,
// and its run stays in the list, so that nothing is destroyed on the wrong thread.
struct Followed
{
    std::mutex mutex;
    std::set<std::shared_ptr<ControllerRun>> runs;
    size_t prepared = 0;
    QObject *receiver = nullptr; // lives on the main thread, as long as the application object
};

Followed &followed()
{
    static auto *all = new Followed;
    return *all;
}

// With the application object goes the receiver, and with it the ends on their way to it.
void closeReceiver()
{
    const std::lock_guard lock(followed().mutex);
    delete std::exchange(followed().receiver, nullptr);
}

// On the main thread, under the lock.
void openReceiver()
{
    if (followed().receiver)
        return;
    followed().receiver = new QObject;
    qAddPostRoutine(closeReceiver);
}

void addFollowed(const std::shared_ptr<ControllerRun> &run)
{
    const std::lock_guard lock(followed().mutex);
    openReceiver();
    followed().runs.insert(run);
}

void postEnd()
{
    NotificationCenter::defaultCenter().post(CONTROLLER_RUN_DID_END);
}

// Any thread.
void endPreparation(void *)
{
    const std::lock_guard lock(followed().mutex);
    followed().prepared--;
    if (followed().receiver)
        QMetaObject::invokeMethod(followed().receiver, postEnd, Qt::QueuedConnection);
}

// On the main thread.
void removeFollowed(const std::shared_ptr<ControllerRun> &run)
{
    const std::lock_guard lock(followed().mutex);
    followed().runs.erase(run);
}

// False at the end of the stream.
bool readSome(int fd, QByteArray *output, bool *whole)
{
    char buffer[16384];
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count < 0)
        return errno == EINTR || errno == EAGAIN;
    if (output->size() + count <= ControllerRun::OUTPUT_MAX)
        output->append(buffer, count);
    else
        *whole = false;
    return count > 0;
}

} // namespace

std::shared_ptr<ControllerRun> ControllerRun::launch(const ControllerLaunch &launch, Reader reader,
                                                     Ended ended)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        return nullptr;
    UniqueFd output(ends[0]);
    UniqueFd input(ends[1]);
    std::shared_ptr<ControllerRun> run(new ControllerRun);
    run->m_ended = std::move(ended);
    run->m_arguments = launch.arguments;
    run->m_pid = spawnController(launch, input.get());
    if (run->m_pid < 0)
        return nullptr;
    run->m_watch.reset(platform_watch_process(run->m_pid));
    addFollowed(run);
    try {
        std::thread([run, output = std::move(output), reader = std::move(reader)]() mutable {
            follow(run, std::move(output), reader);
        }).detach();
    } catch (const std::system_error &) {
        ::kill(run->m_pid, SIGKILL);
        run->reap();
        removeFollowed(run);
        errno = EAGAIN;
        return nullptr;
    }
    return run;
}

size_t ControllerRun::underWay()
{
    const std::lock_guard lock(followed().mutex);
    return followed().runs.size() + followed().prepared;
}

ControllerRun::Preparation ControllerRun::prepare()
{
    const std::lock_guard lock(followed().mutex);
    openReceiver();
    followed().prepared++;
    return {nullptr, endPreparation};
}

bool ControllerRun::isUnderWay(const QString &kind, const QString &vmid)
{
    const std::lock_guard lock(followed().mutex);
    return std::any_of(followed().runs.begin(), followed().runs.end(), [&](const auto &run) {
        return commandKind(run->m_arguments) == kind &&
               run->m_arguments.contains(vmid, Qt::CaseInsensitive);
    });
}

void ControllerRun::follow(const std::shared_ptr<ControllerRun> &run, UniqueFd output,
                           const Reader &reader)
{
    bool whole = true;
    const QByteArray text = run->readOutput(output.get(), &whole);
    output.reset();
    run->reap();
    if (reader)
        reader(text, whole);
    const std::lock_guard lock(followed().mutex);
    if (!followed().receiver)
        return;
    QMetaObject::invokeMethod(
        followed().receiver,
        [run] {
            removeFollowed(run);
            if (const Ended ended = std::exchange(run->m_ended, nullptr))
                ended();
            postEnd();
        },
        Qt::QueuedConnection);
}

QByteArray ControllerRun::readOutput(int output, bool *whole) const
{
    QByteArray text;
    pollfd watched[] = {{output, POLLIN, 0}, {m_watch.get(), POLLIN, 0}};
    bool ended = false;
    for (;;) {
        const int ready = poll(watched, 2, ended ? AFTER_END_MS : -1);
        if (ready == 0 || (ready < 0 && errno != EINTR))
            break;
        if (ready < 0)
            continue;
        if (watched[1].revents) {
            ended = true;
            watched[1].fd = -1;
        }
        if (watched[0].revents && !readSome(output, &text, whole))
            break;
    }
    return text;
}

void ControllerRun::reap()
{
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
        ;
    m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    m_running = false;
}

void ControllerRun::signal(int number)
{
    if (m_running)
        platform_watch_signal(m_watch.get(), number);
}
