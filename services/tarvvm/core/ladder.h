// How an engine is ended, by force alone: one rung after the other, each given its time and each in
// the log. A guest that is asked to power off is not on this ladder: nothing here is ever reached
// because a guest did not do as it was asked.
//
//   rung        what is done                         patience    used by
//   leave       nothing: it is ending by itself      as given    giving up
//   terminate   the engine is told to quit           5 s         stop --force, the guest is off
//   signal      a signal asks it to quit             3 s
//   kill        SIGKILL, again every second          1 s
//
// After `leave` comes `kill`: an engine that is given up can't be told anything.
#pragma once

#include "services/loop/event.h"

#include <cstdint>
#include <functional>
#include <optional>

enum class Rung
{
    leave,
    terminate,
    signal,
    kill
};

// The rung after this one; the last one is repeated.
Rung ladder_next(Rung rung);
// How long a rung is given, milliseconds. A `leave` has no time of its own.
uint64_t ladder_patience_ms(Rung rung);
const char *ladder_text(Rung rung);

class Ladder
{
public:
    // `act` does what a rung says.
    Ladder(sd_event *loop, std::function<void(Rung)> act) : m_loop(loop), m_act(std::move(act)) {}
    // Goes to a rung and on from there. It never goes down: nothing is done when this rung, or a
    // later one, has been reached.
    void climbTo(Rung rung);
    // Gives the engine so many milliseconds to end by itself.
    void leave(uint64_t patience_ms);
    // The rung that was reached; none yet.
    std::optional<Rung> reached() const { return m_rung; }

private:
    void climb(Rung rung, uint64_t patience_ms);

    sd_event *m_loop;
    std::function<void(Rung)> m_act;
    EventSource m_timer;
    std::optional<Rung> m_rung;
};
