#include "services/tarvvm/core/state.h"

#include "tarvhv/cli2/vm_status.h"

namespace {

constexpr unsigned DEFAULT_STOP_WAIT_S = 20;
constexpr unsigned TERMINATE_MS = 5000;
constexpr unsigned SIGNAL_MS = 3000;
constexpr unsigned KILL_MS = 1000;

struct Transition
{
    VmState from;
    VmEvent event;
    VmState to;
};

constexpr Transition TRANSITIONS[] = {
    {VmState::starting, VmEvent::guestRuns, VmState::running},
    {VmState::starting, VmEvent::stopAsked, VmState::stopping},
    {VmState::running, VmEvent::suspendAsked, VmState::suspending},
    {VmState::running, VmEvent::stopAsked, VmState::stopping},
    {VmState::suspending, VmEvent::suspendFailed, VmState::running},
    {VmState::suspending, VmEvent::stateSaved, VmState::stopping},
    {VmState::suspending, VmEvent::stopAsked, VmState::stopping},
    {VmState::starting, VmEvent::engineEnded, VmState::ended},
    {VmState::running, VmEvent::engineEnded, VmState::ended},
    {VmState::suspending, VmEvent::engineEnded, VmState::ended},
    {VmState::stopping, VmEvent::engineEnded, VmState::ended},
};

} // namespace

std::optional<VmState> vm_state_next(VmState state, VmEvent event)
{
    for (const Transition &transition : TRANSITIONS)
        if (transition.from == state && transition.event == event)
            return transition.to;
    return std::nullopt;
}

const char *vm_state_name(VmState state)
{
    switch (state) {
    case VmState::starting:
        return VM_STATE_STARTING;
    case VmState::running:
        return "running";
    case VmState::suspending:
        return "suspending";
    case VmState::stopping:
        return VM_STATE_STOPPING;
    case VmState::ended:
        break;
    }
    return "ended";
}

StopRung stop_first(StopKind kind)
{
    return kind == StopKind::ask ? StopRung::ask : StopRung::terminate;
}

StopRung stop_next(StopRung rung)
{
    switch (rung) {
    case StopRung::ask:
        return StopRung::terminate;
    case StopRung::terminate:
        return StopRung::signal;
    case StopRung::signal:
    case StopRung::kill:
        break;
    }
    return StopRung::kill;
}

unsigned stop_patience_ms(StopRung rung, unsigned stop_wait_s)
{
    switch (rung) {
    case StopRung::ask:
        return (stop_wait_s ? stop_wait_s : DEFAULT_STOP_WAIT_S) * 1000;
    case StopRung::terminate:
        return TERMINATE_MS;
    case StopRung::signal:
        return SIGNAL_MS;
    case StopRung::kill:
        break;
    }
    return KILL_MS;
}

const char *stop_rung_text(StopRung rung)
{
    switch (rung) {
    case StopRung::ask:
        return "asking the guest to power off";
    case StopRung::terminate:
        return "telling the engine to quit";
    case StopRung::signal:
        return "sending SIGTERM to the engine";
    case StopRung::kill:
        break;
    }
    return "killing the engine";
}
