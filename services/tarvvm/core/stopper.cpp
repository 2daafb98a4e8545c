#include "services/tarvvm/core/stopper.h"

void Stopper::begin(StopKind kind)
{
    const StopRung first = stop_first(kind);
    if (m_begun && first <= m_rung)
        return;
    climb(first);
}

void Stopper::climb(StopRung rung)
{
    m_begun = true;
    m_rung = rung;
    m_timer = event_timer(m_loop, stop_patience_ms(rung, m_stop_wait_s),
                          [this] { climb(stop_next(m_rung)); });
    m_act(rung);
}
