#include "services/tarvvm/screens/input_gate.h"

#include <algorithm>
#include <utility>

namespace {

constexpr uint64_t REFILL_MS = 4; // a few messages' time

} // namespace

InputGate::InputGate(sd_event *loop) : m_loop(loop) {}

void InputGate::wait(Waiter *waiter)
{
    if (std::find(m_waiters.begin(), m_waiters.end(), waiter) == m_waiters.end())
        m_waiters.push_back(waiter);
    serve();
}

void InputGate::forget(Waiter *waiter)
{
    std::erase(m_waiters, waiter);
}

void InputGate::sent()
{
    m_unanswered++;
    m_rate.take(1);
}

void InputGate::answered()
{
    m_unanswered--;
    serve();
}

bool InputGate::isOpen()
{
    const bool in_time = m_rate.left() >= 1;
    if (!in_time && !m_refill)
        m_refill = event_timer(m_loop, REFILL_MS, [this] {
            m_refill.reset();
            serve();
        });
    return in_time && m_unanswered < UNANSWERED_MAX;
}

// A call that fails at once is answered at once, from within this.
void InputGate::serve()
{
    if (std::exchange(m_serving, true))
        return;
    while (!m_waiters.empty() && isOpen()) {
        Waiter *next = m_waiters.front();
        m_waiters.pop_front();
        if (next->sendNext())
            m_waiters.push_back(next);
    }
    m_serving = false;
}
