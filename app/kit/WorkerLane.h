// A queue of work with threads of its own, started as they are needed and never waited for.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>

// Lives as long as the program: its threads use it to the end.
class WorkerLane
{
public:
    using Job = std::function<void()>;

    // With `giveWay` its threads leave the processor to those that a person waits for.
    WorkerLane(size_t threads, bool giveWay) : m_limit(threads), m_giveWay(giveWay) {}
    WorkerLane(const WorkerLane &) = delete;
    WorkerLane &operator=(const WorkerLane &) = delete;

    // Queues a job; a higher priority goes first. Any thread.
    void add(Job job, int priority);

private:
    void startThread();
    [[noreturn]] void work();

    const size_t m_limit;
    const bool m_giveWay;
    std::mutex m_mutex;
    std::condition_variable m_added;
    std::multimap<int, Job, std::greater<>> m_jobs; // by priority, then in the order of adding
    size_t m_threads = 0;
    size_t m_idle = 0;
};
