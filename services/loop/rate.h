// How much of something may happen: so much at once, and so much a second.
#pragma once

#include <algorithm>
#include <chrono>

class Rate
{
public:
    Rate(double per_second, double at_once)
        : m_per_second(per_second), m_at_once(at_once), m_left(at_once)
    {
    }

    // What is left at present; below 0 what was taken too much.
    double left()
    {
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - m_counted).count();
        m_counted = now;
        m_left = std::min(m_at_once, m_left + seconds * m_per_second);
        return m_left;
    }
    void take(double amount) { m_left -= amount; }
    // Milliseconds until something is left; 0 when there is.
    double wait() { return std::max(0.0, -left() / m_per_second * 1000); }

private:
    const double m_per_second, m_at_once;
    double m_left;
    std::chrono::steady_clock::time_point m_counted = std::chrono::steady_clock::now();
};
