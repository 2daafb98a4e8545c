// A thread for calls that may block: file locks, fsync, the removal of large files. The loop hands
// them over and hears of their end; it never waits for them.
#pragma once

#include "services/loop/event.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

// One thread, so that calls are carried out one after the other, in the order in which they were
// given. Users rely on it: a removal that was given before a rewrite never sees the rewritten file.
class Worker
{
public:
    // Null with errno set. At most `limit` calls wait at any time.
    static std::unique_ptr<Worker> start(sd_event *loop, size_t limit = 32);
    // Drops the calls that have not begun and waits a moment for the one that has. A call that is
    // stuck all the same (in the lock of a stranger) is left behind with its thread, so a call must
    // own what it uses: what it captures is still there after the worker, and after main's objects.
    ~Worker();
    Worker(const Worker &) = delete;
    Worker &operator=(const Worker &) = delete;

    // Runs `call` on the thread and then `done` on the loop. False when too many calls wait or
    // finish() was called; neither is run then. After the destructor no `done` is run.
    bool post(std::function<void()> call, std::function<void()> done);
    // The same for a call with a result, which `done` is given.
    template <typename Call, typename Done>
    bool run(Call call, Done done)
    {
        auto result = std::make_shared<std::optional<decltype(call())>>();
        return post([call = std::move(call), result] { *result = call(); },
                    [done = std::move(done), result] { done(std::move(**result)); });
    }
    // Takes no more calls, waits until all that were given are through, and runs what was to be
    // done after them. False when that took longer than `patience`.
    bool finish(std::chrono::milliseconds patience);

private:
    struct Shared; // with the thread; outlives this object where a call is stuck

    Worker() = default;
    static void work(const std::shared_ptr<Shared> &shared);
    void deliver();

    std::shared_ptr<Shared> m_shared;
    EventSource m_source;
    std::thread m_thread;
};
