// The child process of one controller run: its launch as data, its output and its end.
#pragma once

#include "platform/unique_fd.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <sys/types.h>

// What is to be run; nothing else of this process is inherited but standard input.
struct ControllerLaunch
{
    QString program;
    QStringList arguments; // without the program's own name
    QMap<QByteArray, QByteArray> environment;
    int standardError = -1; // -1: /dev/null
};

// The launch of a controller command: the given environment, else this process's, with the three
// entries that the controller needs. The program is empty where the settings name none.
ControllerLaunch controllerLaunch(const QStringList &arguments,
                                  const std::optional<QMap<QString, QString>> &environment);

// A thread of its own reads the output to its end and reaps the child, also when nobody follows
// the end any more. Used on the main thread.
class ControllerTask
{
public:
    // Runs on that thread with all of standard output, before `Ended` on the main thread.
    using Reader = std::function<void(const QByteArray &output)>;
    using Ended = std::function<void()>;

    // Null with errno set when the program can't be started.
    static std::shared_ptr<ControllerTask> launch(const ControllerLaunch &launch, Reader reader,
                                                  Ended ended);

    pid_t pid() const { return m_pid; }
    bool isRunning() const { return m_running; }
    // 0 while it runs; 128 + the signal that killed it.
    int exitStatus() const { return m_status; }
    // Sends a signal, unless it has ended.
    void signal(int number);
    // Nobody is told of the end.
    void forget() { m_ended = nullptr; }

private:
    ControllerTask() = default;
    static void follow(const std::shared_ptr<ControllerTask> &task, UniqueFd output,
                       const Reader &reader);
    QByteArray readOutput(int output) const;
    void reap();

    pid_t m_pid = -1;
    UniqueFd m_watch; // readable once the child has ended
    std::atomic<bool> m_running = true;
    std::atomic<int> m_status = 0;
    Ended m_ended;
};
