// The states of a supervised VM and the ladder of a stop: plain values, decided here alone.
//
//   state       event          next
//   starting    guestRuns      running
//   starting    stopAsked      stopping
//   running     suspendAsked   suspending
//   running     stopAsked      stopping
//   suspending  suspendFailed  running
//   suspending  stateSaved     stopping
//   suspending  stopAsked      stopping   (only a forced stop is asked for then)
//   any         engineEnded    ended
#pragma once

#include <optional>

enum class VmState
{
    starting,
    running,
    suspending,
    stopping,
    ended
};

enum class VmEvent
{
    guestRuns,
    suspendAsked,
    suspendFailed,
    stateSaved,
    stopAsked,
    engineEnded
};

// The state after an event; none when the event is not allowed in this state.
std::optional<VmState> vm_state_next(VmState state, VmEvent event);
// "starting" …
const char *vm_state_name(VmState state);

// What a stop tries, one rung after the other.
enum class StopRung
{
    ask,       // the guest's power button
    terminate, // the engine is told to quit
    signal,    // SIGTERM
    kill       // SIGKILL
};

enum class StopKind
{
    ask,
    force
};

StopRung stop_first(StopKind kind);
// The rung after this one; the last one is repeated.
StopRung stop_next(StopRung rung);
// How long a rung is given, milliseconds. `stop_wait_s` is the setting "stop_wait"; 0: 20 s.
unsigned stop_patience_ms(StopRung rung, unsigned stop_wait_s);
const char *stop_rung_text(StopRung rung);
