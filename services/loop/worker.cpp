#include "services/loop/worker.h"

#include "platform/file.h"
#include "platform/unique_fd.h"

#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <system_error>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

// How long the destructor waits for a call that runs: an fsync under load, no lock of a stranger.
constexpr std::chrono::milliseconds LEAVE_PATIENCE{2000};

struct Task
{
    std::function<void()> call, done;
};

} // namespace

struct Worker::Shared
{
    std::mutex lock;
    std::condition_variable changed; // anything below
    std::deque<Task> waiting;
    std::deque<std::function<void()>> ended; // for the loop
    size_t limit = 0;
    bool busy = false;    // a call runs
    bool closed = false;  // takes no more calls
    bool leaving = false; // the thread ends after the call that runs
    bool left = false;    // it has
    bool gone = false;    // the worker was destroyed; of the loop's thread alone
    // Both ends are held here, so that a thread that was left behind writes to a pipe that is
    // there.
    UniqueFd wake_reader, wake_writer;
};

std::unique_ptr<Worker> Worker::start(sd_event *loop, size_t limit)
try {
    std::unique_ptr<Worker> self(new Worker);
    self->m_shared = std::make_shared<Shared>();
    Shared &shared = *self->m_shared;
    shared.limit = limit;
    if (platform_pipe(&shared.wake_reader, &shared.wake_writer) != 0)
        return nullptr;
    for (const int end : {shared.wake_reader.get(), shared.wake_writer.get()})
        if (fcntl(end, F_SETFL, fcntl(end, F_GETFL) | O_NONBLOCK) != 0)
            return nullptr;
    self->m_source = event_io(loop, shared.wake_reader.get(), EPOLLIN,
                              [worker = self.get()](uint32_t) { worker->deliver(); });
    if (!self->m_source) {
        errno = ENOMEM;
        return nullptr;
    }
    // Signals are the loop's: the thread is born with all of them blocked.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        self->m_thread = std::thread(work, self->m_shared);
    } catch (const std::system_error &) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return self;
} catch (const std::system_error &failure) {
    errno = failure.code().value();
    return nullptr;
}

Worker::~Worker()
{
    if (!m_thread.joinable())
        return;
    m_shared->gone = true;
    std::unique_lock guard(m_shared->lock);
    m_shared->closed = m_shared->leaving = true;
    const std::deque<Task> dropped = std::exchange(m_shared->waiting, {});
    m_shared->changed.notify_all();
    const bool left =
        m_shared->changed.wait_for(guard, LEAVE_PATIENCE, [this] { return m_shared->left; });
    guard.unlock();
    if (left)
        m_thread.join();
    else
        m_thread.detach();
}

bool Worker::post(std::function<void()> call, std::function<void()> done)
{
    const std::lock_guard guard(m_shared->lock);
    if (m_shared->closed || m_shared->waiting.size() >= m_shared->limit)
        return false;
    m_shared->waiting.push_back({std::move(call), std::move(done)});
    m_shared->changed.notify_all();
    return true;
}

void Worker::work(const std::shared_ptr<Shared> &shared)
{
    std::unique_lock guard(shared->lock);
    for (;;) {
        shared->changed.wait(guard, [&] { return shared->leaving || !shared->waiting.empty(); });
        if (shared->leaving)
            break;
        Task task = std::move(shared->waiting.front());
        shared->waiting.pop_front();
        shared->busy = true;
        guard.unlock();
        task.call();
        task.call = nullptr; // what it owns goes here, not while the lock is held
        guard.lock();
        shared->busy = false;
        shared->ended.push_back(std::move(task.done));
        shared->changed.notify_all();
        // A pipe that is full wakes the loop as well.
        [[maybe_unused]] const ssize_t woken = write(shared->wake_writer.get(), "", 1);
    }
    shared->left = true;
    shared->changed.notify_all();
}

void Worker::deliver()
{
    const std::shared_ptr<Shared> shared = m_shared; // an end may destroy this object
    char bytes[64];
    while (read(shared->wake_reader.get(), bytes, sizeof bytes) > 0)
        ;
    std::deque<std::function<void()>> ended;
    {
        const std::lock_guard guard(shared->lock);
        ended.swap(shared->ended);
    }
    for (const auto &done : ended)
        if (done && !shared->gone)
            done();
}

bool Worker::finish(std::chrono::milliseconds patience)
{
    {
        std::unique_lock guard(m_shared->lock);
        m_shared->closed = true;
        const bool idle = m_shared->changed.wait_for(
            guard, patience, [this] { return !m_shared->busy && m_shared->waiting.empty(); });
        if (!idle)
            return false;
    }
    deliver();
    return true;
}
