#include "app/kit/WorkerLane.h"

#include "platform/thread.h"

#include <system_error>
#include <thread>
#include <utility>

void WorkerLane::add(Job job, int priority)
{
    const std::lock_guard lock(m_mutex);
    m_jobs.emplace(priority, std::move(job));
    if (m_jobs.size() > m_idle && m_threads < m_limit)
        startThread();
    m_added.notify_one();
}

// Without a further thread the others do the work; without any, the next job tries again.
void WorkerLane::startThread()
{
    try {
        std::thread([this] { work(); }).detach();
        m_threads++;
    } catch (const std::system_error &) {
    }
}

void WorkerLane::work()
{
    if (m_giveWay)
        platform_thread_give_way();
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_idle++;
        m_added.wait(lock, [this] { return !m_jobs.empty(); });
        m_idle--;
        auto first = m_jobs.extract(m_jobs.begin());
        lock.unlock();
        first.mapped()();
        first = {}; // what the job holds is let go of outside the lock
        lock.lock();
    }
}
