// Runs the ladder of a stop: each rung is given its time, then comes the next.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/core/state.h"

#include <functional>

class Stopper
{
public:
    Stopper(sd_event *loop, unsigned stop_wait_s, std::function<void(StopRung)> act)
        : m_loop(loop), m_stop_wait_s(stop_wait_s), m_act(std::move(act))
    {
    }
    // Begins, or goes on at once to the rung that a forced stop starts with.
    void begin(StopKind kind);
    bool begun() const { return m_begun; }

private:
    void climb(StopRung rung);

    sd_event *m_loop;
    unsigned m_stop_wait_s;
    std::function<void(StopRung)> m_act;
    EventSource m_timer;
    StopRung m_rung = StopRung::ask;
    bool m_begun = false;
};
