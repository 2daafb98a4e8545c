// Many exchanges on one thread.
#pragma once

#include "tarvhv/cli2/exchange.h"

#include <functional>
#include <list>
#include <map>
#include <poll.h>
#include <span>
#include <vector>

// Exchanges that take turns: so many at once, the others by priority and then in the order of
// adding. The bound keeps a library of a thousand VMs from using up the process's descriptors.
// Lives on one thread.
class ExchangePool
{
public:
    using Done = std::function<void(Exchange &)>;

    explicit ExchangePool(size_t at_once) : m_at_once(at_once) {}

    // `done` is called once, from a turn; it may add more.
    void add(Exchange exchange, Done done, int priority = 0);
    bool empty() const { return m_waiting.empty() && m_running.empty(); }

private:
    friend int exchange_turn(std::span<ExchangePool *const> pools, int wake,
                             const Cli2Deadline &until);
    struct Entry
    {
        Exchange exchange;
        Done done;
    };

    void begin();
    void collect(std::vector<pollfd> &waits, Cli2Deadline &until) const;
    void advance(std::span<const pollfd> waits);
    void settle(std::list<Entry>::iterator entry);

    size_t m_at_once;
    std::multimap<int, Entry, std::greater<>> m_waiting;
    std::list<Entry> m_running;
};

// Waits until anything can go on in the pools, `wake` can be read (-1: none) or the deadline has
// come, and lets it. 0, or -1 with errno of poll.
int exchange_turn(std::span<ExchangePool *const> pools, int wake, const Cli2Deadline &until);
