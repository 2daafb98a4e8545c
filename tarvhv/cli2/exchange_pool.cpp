#include "tarvhv/cli2/exchange_pool.h"

#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

void earliest(Cli2Deadline &until, const Cli2Deadline &other)
{
    if (other && (!until || *other < *until))
        until = other;
}

int milliseconds_until(const Cli2Deadline &until)
{
    if (!until)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Cli2Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, INT_MAX));
}

} // namespace

void ExchangePool::add(Exchange exchange, Done done, int priority)
{
    m_waiting.emplace(priority, Entry{std::move(exchange), std::move(done)});
}

void ExchangePool::begin()
{
    while (m_running.size() < m_at_once && !m_waiting.empty()) {
        m_running.push_back(std::move(m_waiting.extract(m_waiting.begin()).mapped()));
        settle(std::prev(m_running.end()));
    }
}

// Lets one go on. It leaves the list before its end is told, since whoever is told may add more.
void ExchangePool::settle(std::list<Entry>::iterator entry)
{
    entry->exchange.advance();
    if (!entry->exchange.ended())
        return;
    std::list<Entry> gone;
    gone.splice(gone.begin(), m_running, entry);
    gone.front().done(gone.front().exchange);
}

void ExchangePool::collect(std::vector<pollfd> &waits, Cli2Deadline &until) const
{
    for (const Entry &entry : m_running) {
        const bool retry = entry.exchange.step() == Exchange::Step::retry;
        waits.push_back({retry ? -1 : entry.exchange.fd(), entry.exchange.events(), 0});
        earliest(until, entry.exchange.wakeAt());
    }
}

void ExchangePool::advance(std::span<const pollfd> waits)
{
    const auto now = Cli2Clock::now();
    auto entry = m_running.begin();
    for (const pollfd &wait : waits) {
        const auto current = entry++;
        const Cli2Deadline wake = current->exchange.wakeAt();
        if (wait.revents != 0 || (wake && *wake <= now))
            settle(current);
    }
}

int exchange_turn(std::span<ExchangePool *const> pools, int wake, const Cli2Deadline &until)
{
    std::vector<pollfd> waits{{wake, POLLIN, 0}};
    std::vector<size_t> counts;
    Cli2Deadline first = until;
    for (ExchangePool *pool : pools)
        pool->begin();
    // What began may have ended at once and made room, or asked for more.
    for (ExchangePool *pool : pools) {
        if (!pool->m_waiting.empty() && pool->m_running.size() < pool->m_at_once)
            earliest(first, Cli2Clock::now());
        const size_t before = waits.size();
        pool->collect(waits, first);
        counts.push_back(waits.size() - before);
    }
    // What began has ended already: there may be nothing left that a wait could end by.
    if (waits.size() == 1 && wake < 0)
        return 0;
    if (poll(waits.data(), waits.size(), milliseconds_until(first)) < 0 && errno != EINTR)
        return -1;
    std::span<const pollfd> rest(waits);
    rest = rest.subspan(1);
    for (size_t i = 0; i < pools.size(); ++i) {
        pools[i]->advance(rest.first(counts[i]));
        rest = rest.subspan(counts[i]);
    }
    return 0;
}
