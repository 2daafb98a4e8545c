// What the status says of a VM's use of the processor and of its age.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

class Usage
{
public:
    using Clock = std::chrono::steady_clock;

    // The guest runs from now on.
    void begin(Clock::time_point now) { m_since = m_sampled = now; }
    // Whole seconds since then; 0 before.
    int64_t uptime(Clock::time_point now) const;
    // Percent of one processor over the time since the last sample, a new one being taken only
    // after a second: questions that come faster are given the last figure. `used_ms` is the
    // engine's processor time; -1: unknown.
    int64_t share(Clock::time_point now, int64_t used_ms);

private:
    std::optional<Clock::time_point> m_since;
    Clock::time_point m_sampled;
    int64_t m_sampled_ms = 0;
    int64_t m_share = 0;
};
