// The states of a supervised VM: plain values and one table, decided here alone.
//
//   state           event           next
//   starting        loadBegun       resuming        a saved state is read into the machine
//   starting        machineReady    releasing       the machine is whole, the guest is let run
//   resuming        machineReady    releasing
//   releasing       guestRuns       running
//   running         roomMissing     waitingForRoom  QEMU paused it: a disk of the host is full
//   waitingForRoom  roomMissing     waitingForRoom
//   waitingForRoom  roomFound       running
//   running, waitingForRoom, stopping
//                   suspendAsked    suspending      of a stopping one, at the end of the session
//   running, stopping
//                   stopAsked       stopping        the guest was asked to power off
//   waitingForRoom  stopAsked       waitingForRoom  it hears of it once it goes on
//   stopping        stopLapsed      running         it did not, and runs on
//   stopping        roomMissing     waitingForRoom  it needs room to power off
//   suspending      suspendFailed   running
//   suspending      stateSaved      forcing         the state is safe, the engine is to go
//   any up to stopping
//                   forced          forcing         the engine is being ended, as was asked
//                   givenUp         givingUp        the engine is being ended, as it is of no use
//   any             engineEnded     ended
#pragma once

#include <optional>
#include <string>

enum class RunState
{
    starting,
    resuming,
    releasing,
    running,
    waitingForRoom,
    suspending,
    stopping,
    forcing,
    givingUp,
    ended
};

enum class RunEvent
{
    loadBegun,
    machineReady,
    guestRuns,
    roomMissing,
    roomFound,
    suspendAsked,
    suspendFailed,
    stateSaved,
    stopAsked,
    stopLapsed,
    forced,
    givenUp,
    engineEnded
};

// The state after an event; none when the event is not allowed in this state.
std::optional<RunState> run_state_next(RunState state, RunEvent event);
// For logs and tests: "waitingForRoom" …
const char *run_state_name(RunState state);
// What the status says: "starting", "running", "suspending", "stopping" or "ended".
const char *run_state_word(RunState state);
// Whether the guest has run: it may have changed its disks since.
bool run_state_is_up(RunState state);

// One VM from its start to its end: the state, and with it why it came to that.
class Run
{
public:
    RunState state() const { return m_state; }
    // Why the guest waits for room, or why the run was given up; else empty.
    const std::string &reason() const { return m_reason; }
    // The last state before the run's end began (forcing, givingUp, ended): what had been reached.
    RunState reached() const { return m_reached; }
    // Takes an event. False, and nothing has changed, when it is not allowed.
    bool step(RunEvent event, const std::string &reason = {});

private:
    RunState m_state = RunState::starting;
    RunState m_reached = RunState::starting;
    std::string m_reason;
};
