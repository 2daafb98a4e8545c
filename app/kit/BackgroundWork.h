// Work that may block, done off the main thread, with its result handed back to the main thread.
#pragma once

#include <QByteArrayList>

#include <functional>
#include <memory>

// Runs work on threads that are never waited for, not even when the program ends: a peer that does
// not answer holds up nothing but its own thread. Made, used and destroyed on the main thread.
class BackgroundWork
{
public:
    // Runs on the main thread after the work, unless the BackgroundWork is gone by then.
    using Continuation = std::function<void()>;
    // Runs on a worker thread. It may answer no continuation.
    using Work = std::function<Continuation()>;

    // Each lane has threads of its own, so that one kind of hung peer does not delay another.
    enum class Lane
    {
        records,       // files of the VM library
        launchService, // the launch service's socket
        guests,        // disks and firmware variables, read with external tools
    };

    BackgroundWork();
    ~BackgroundWork();
    BackgroundWork(const BackgroundWork &) = delete;
    BackgroundWork &operator=(const BackgroundWork &) = delete;

    // Queues work; a higher priority goes first within its lane.
    void run(Lane lane, Work work, int priority = 0);

    // What other threads hand their results over by, as work does. It may be called on any thread
    // and outlive the BackgroundWork; then it drops what it is given.
    using Post = std::function<void(Continuation)>;
    Post poster() const;

    // Variables that are in this process's environment for the workers alone. Main thread.
    static QByteArrayList ownVariables();

    // One that lives as long as the program, for work whose asker may be gone when it is done.
    static BackgroundWork &shared();

private:
    struct Mailbox;
    std::shared_ptr<Mailbox> m_mailbox;
};
