#include "app/model/ControllerTask.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "platform/process.h"
#include "platform/watch.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>

#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr qsizetype outputMax = 16 * 1024 * 1024;
// A command's own children may hold its output open; they are not waited for.
constexpr int afterEnd_ms = 2000;

// The tasks that are followed, and where their ends are posted to. Never destroyed: a thread may
// end after the application object. What has not been delivered by then never is, but stays held.
struct Followed
{
    std::mutex mutex;
    std::set<std::shared_ptr<ControllerTask>> tasks;
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

void addFollowed(const std::shared_ptr<ControllerTask> &task)
{
    const std::lock_guard lock(followed().mutex);
    if (!followed().receiver) {
        followed().receiver = new QObject;
        qAddPostRoutine(closeReceiver);
    }
    followed().tasks.insert(task);
}

// On the main thread.
void removeFollowed(const std::shared_ptr<ControllerTask> &task)
{
    const std::lock_guard lock(followed().mutex);
    followed().tasks.erase(task);
}

// The texts of an argument vector or environment, and the pointers to them.
struct TextVector
{
    std::vector<QByteArray> texts;
    std::vector<char *> pointers;

    void add(const QByteArray &text) { texts.push_back(text); }
    char *const *data()
    {
        pointers.clear();
        for (QByteArray &text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);
        return pointers.data();
    }
};

QMap<QByteArray, QByteArray> ownEnvironment()
{
    QMap<QByteArray, QByteArray> map;
    for (char **entry = environ; *entry; ++entry) {
        const QByteArray text(*entry);
        const qsizetype equals = text.indexOf('=');
        if (equals > 0)
            map.insert(text.left(equals), text.mid(equals + 1));
    }
    return map;
}

QMap<QByteArray, QByteArray> encoded(const QMap<QString, QString> &environment)
{
    QMap<QByteArray, QByteArray> map;
    for (auto entry = environment.begin(); entry != environment.end(); ++entry)
        map.insert(entry.key().toLocal8Bit(), entry.value().toLocal8Bit());
    return map;
}

// Asked for once: a directory service may be slow to tell.
const QByteArray &ownName()
{
    static const QByteArray name = [] {
        const char *user = platform_user_name(getuid());
        return user ? QByteArray(user) : QByteArray::number(getuid());
    }();
    return name;
}

pid_t spawn(const ControllerLaunch &launch, int output)
{
    const QByteArray program = launch.program.toLocal8Bit();
    TextVector arguments;
    arguments.add(program);
    for (const QString &argument : launch.arguments)
        arguments.add(argument.toLocal8Bit());
    TextVector environment;
    for (auto entry = launch.environment.begin(); entry != launch.environment.end(); ++entry)
        environment.add(entry.key() + '=' + entry.value());
    platform_launch plain{program.constData(), arguments.data(), environment.data()};
    plain.stdin_fd = fcntl(STDIN_FILENO, F_GETFD) < 0 ? -1 : STDIN_FILENO;
    plain.stdout_fd = output;
    plain.stderr_fd = launch.standardError < 0 ? -1 : launch.standardError;
    return platform_spawn(plain);
}

// False at the end of the stream.
bool readSome(int fd, QByteArray *output)
{
    char buffer[16384];
    const ssize_t count = read(fd, buffer, sizeof buffer);
    if (count < 0)
        return errno == EINTR || errno == EAGAIN;
    if (count > 0 && output->size() < outputMax)
        output->append(buffer, count);
    return count > 0;
}

} // namespace

ControllerLaunch controllerLaunch(const QStringList &arguments,
                                  const std::optional<QMap<QString, QString>> &environment)
{
    ControllerLaunch launch;
    launch.program = QString::fromLocal8Bit(config_get_path("tarvctl_executable"));
    launch.arguments = arguments;
    launch.environment = environment ? encoded(*environment) : ownEnvironment();
    launch.environment["TARV_MACHINE_READABLE"] = "1";
    launch.environment["TARV_TARV_VIEWER"] = QCoreApplication::applicationFilePath().toLocal8Bit();
    launch.environment["USER"] = ownName();
    return launch;
}

std::shared_ptr<ControllerTask> ControllerTask::launch(const ControllerLaunch &launch,
                                                       Reader reader, Ended ended)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        return nullptr;
    UniqueFd output(ends[0]);
    UniqueFd input(ends[1]);
    std::shared_ptr<ControllerTask> task(new ControllerTask);
    task->m_ended = std::move(ended);
    task->m_pid = spawn(launch, input.get());
    if (task->m_pid < 0)
        return nullptr;
    task->m_watch.reset(platform_watch_process(task->m_pid));
    addFollowed(task);
    try {
        std::thread([task, output = std::move(output), reader = std::move(reader)]() mutable {
            follow(task, std::move(output), reader);
        }).detach();
    } catch (const std::system_error &) {
        ::kill(task->m_pid, SIGKILL);
        task->reap();
        removeFollowed(task);
        errno = EAGAIN;
        return nullptr;
    }
    return task;
}

void ControllerTask::follow(const std::shared_ptr<ControllerTask> &task, UniqueFd output,
                            const Reader &reader)
{
    const QByteArray text = task->readOutput(output.get());
    output.reset();
    task->reap();
    if (reader)
        reader(text);
    const std::lock_guard lock(followed().mutex);
    if (!followed().receiver)
        return;
    QMetaObject::invokeMethod(
        followed().receiver,
        [task] {
            removeFollowed(task);
            if (const Ended ended = std::exchange(task->m_ended, nullptr))
                ended();
        },
        Qt::QueuedConnection);
}

QByteArray ControllerTask::readOutput(int output) const
{
    QByteArray text;
    pollfd watched[] = {{output, POLLIN, 0}, {m_watch.get(), POLLIN, 0}};
    bool ended = false;
    for (;;) {
        const int ready = poll(watched, 2, ended ? afterEnd_ms : -1);
        if (ready == 0 || (ready < 0 && errno != EINTR))
            break;
        if (ready < 0)
            continue;
        if (watched[1].revents) {
            ended = true;
            watched[1].fd = -1;
        }
        if (watched[0].revents && !readSome(output, &text))
            break;
    }
    return text;
}

void ControllerTask::reap()
{
    int status = 0;
    while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
        ;
    m_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    m_running = false;
}

void ControllerTask::signal(int number)
{
    if (m_running)
        platform_watch_signal(m_watch.get(), number);
}
