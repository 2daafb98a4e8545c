#include "services/tarvvm/core/ladder.h"

namespace {

constexpr uint64_t TERMINATE_MS = 5000; // QEMU writes out what its disks hold in memory
constexpr uint64_t SIGNAL_MS = 3000;
constexpr uint64_t KILL_MS = 1000;

} // namespace

Rung ladder_next(Rung rung)
{
    switch (rung) {
    case Rung::terminate:
        return Rung::signal;
    case Rung::leave:
    case Rung::signal:
    case Rung::kill:
        break;
    }
    return Rung::kill;
}

uint64_t ladder_patience_ms(Rung rung)
{
    switch (rung) {
    case Rung::terminate:
        return TERMINATE_MS;
    case Rung::signal:
        return SIGNAL_MS;
    case Rung::leave:
    case Rung::kill:
        break;
    }
    return KILL_MS;
}

const char *ladder_text(Rung rung)
{
    switch (rung) {
    case Rung::leave:
        return "waiting for the engine to end by itself";
    case Rung::terminate:
        return "telling the engine to quit";
    case Rung::signal:
        return "sending SIGINT to the engine";
    case Rung::kill:
        break;
    }
    return "killing the engine";
}

void Ladder::climbTo(Rung rung)
{
    if (!m_rung || *m_rung < rung)
        climb(rung, ladder_patience_ms(rung));
}

void Ladder::leave(uint64_t patience_ms)
{
    if (!m_rung || *m_rung < Rung::leave)
        climb(Rung::leave, patience_ms);
}

void Ladder::climb(Rung rung, uint64_t patience_ms)
{
    m_rung = rung;
    m_timer = event_timer(m_loop, patience_ms, [this] {
        const Rung next = ladder_next(*m_rung);
        climb(next, ladder_patience_ms(next));
    });
    m_act(rung);
}
