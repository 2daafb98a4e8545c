// One run of the controller: the child process, its output, its end and who is told of it.
//
// A run owns itself. From launch() until its end has been delivered it is in the list of all runs,
// and a thread of its own reads the child's output to the end and reaps it, whether or not anybody
// still follows. Whoever launched it holds a share, with which it can signal the child, and forgets
// it when the end is of no interest any more; the share may be dropped at any time.
//
// A quit waits for the runs under way, or leaves them to themselves if the user prefers that (see
// app/shell/Termination.h). When the application object goes, ends are delivered no more: a child
// that still runs then runs on by itself, with nobody at the other end of its output.
#pragma once

#include "app/model/ControllerLaunch.h"
#include "platform/unique_fd.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <sys/types.h>

// Posted on the main thread after each end, once whoever followed the run has been told of it, and
// after each preparation.
inline const QString CONTROLLER_RUN_DID_END = QStringLiteral("ControllerRunDidEnd");

// Used on the main thread.
class ControllerRun
{
public:
    // Called on the run's thread with standard output, before `Ended` on the main thread. What is
    // past OUTPUT_MAX is read and dropped, so that the child is not held up: then it is not whole.
    using Reader = std::function<void(const QByteArray &output, bool whole)>;
    static constexpr qsizetype OUTPUT_MAX = 16 * 1024 * 1024; // bytes
    using Ended = std::function<void()>;

    // Null with errno set when the program can't be started.
    static std::shared_ptr<ControllerRun> launch(const ControllerLaunch &launch, Reader reader,
                                                 Ended ended);

    // How many runs have not been delivered their end, or are being prepared.
    static size_t underWay();
    // Counts as under way until it is let go of, on any thread: a command that was asked for and
    // waits for what decides about it must not be lost with the last window.
    using Preparation = std::shared_ptr<void>;
    static Preparation prepare();
    // Whether one of them carries out such a command (see commandKind) on a VM. A key that is held
    // or a second click must not give a VM the same command twice.
    static bool isUnderWay(const QString &kind, const QString &vmid);

    pid_t pid() const { return m_pid; }
    bool isRunning() const { return m_running; }
    // 0 while it runs; 128 + the signal that killed it.
    int exitStatus() const { return m_status; }
    // Sends a signal, unless it has ended.
    void signal(int number);
    // Nobody is told of the end.
    void forget() { m_ended = nullptr; }

private:
    ControllerRun() = default;
    static void follow(const std::shared_ptr<ControllerRun> &run, UniqueFd output,
                       const Reader &reader);
    QByteArray readOutput(int output, bool *whole) const;
    void reap();

    QStringList m_arguments;
    pid_t m_pid = -1;
    UniqueFd m_watch; // readable once the child has ended; names the process that pid once was
    // Written by the run's thread. The status is there before the run counts as ended.
    std::atomic<bool> m_running = true;
    std::atomic<int> m_status = 0;
    Ended m_ended; // main thread only
};
