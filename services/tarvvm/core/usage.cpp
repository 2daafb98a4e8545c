#include "services/tarvvm/core/usage.h"

int64_t Usage::uptime(Clock::time_point now) const
{
    return m_since ? std::chrono::duration_cast<std::chrono::seconds>(now - *m_since).count() : 0;
}

int64_t Usage::share(Clock::time_point now, int64_t used_ms)
{
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(now - m_sampled).count();
    if (used_ms < 0 || !m_since || elapsed < 1000)
        return m_share;
    m_share = (used_ms - m_sampled_ms) * 100 / elapsed;
    m_sampled = now;
    m_sampled_ms = used_ms;
    return m_share;
}
