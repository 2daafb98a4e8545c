#include "services/tarvvm/core/run_state.h"

#include "tarvhv/cli2/vm_status.h"

namespace {

constexpr unsigned bit(RunState state)
{
    return 1u << unsigned(state);
}

constexpr unsigned ALIVE = bit(RunState::forcing) - 1; // up to stopping
constexpr unsigned RUNNING = bit(RunState::running) | bit(RunState::waitingForRoom);

struct Transition
{
    unsigned from; // bits of states
    RunEvent event;
    RunState to;
};

constexpr Transition TRANSITIONS[] = {
    {bit(RunState::starting), RunEvent::loadBegun, RunState::resuming},
    {bit(RunState::starting) | bit(RunState::resuming), RunEvent::machineReady,
     RunState::releasing},
    {bit(RunState::releasing), RunEvent::guestRuns, RunState::running},
    {RUNNING | bit(RunState::stopping), RunEvent::roomMissing, RunState::waitingForRoom},
    {bit(RunState::waitingForRoom), RunEvent::roomFound, RunState::running},
    {RUNNING | bit(RunState::stopping), RunEvent::suspendAsked, RunState::suspending},
    {bit(RunState::running) | bit(RunState::stopping), RunEvent::stopAsked, RunState::stopping},
    {bit(RunState::waitingForRoom), RunEvent::stopAsked, RunState::waitingForRoom},
    {bit(RunState::stopping), RunEvent::stopLapsed, RunState::running},
    {bit(RunState::suspending), RunEvent::suspendFailed, RunState::running},
    {bit(RunState::suspending), RunEvent::stateSaved, RunState::forcing},
    {ALIVE, RunEvent::forced, RunState::forcing},
    {ALIVE, RunEvent::givenUp, RunState::givingUp},
    {bit(RunState::ended) - 1, RunEvent::engineEnded, RunState::ended},
};

struct Words
{
    const char *name, *word;
};

constexpr Words WORDS[] = {
    {"starting", VM_STATE_STARTING},  {"resuming", VM_STATE_STARTING},
    {"releasing", VM_STATE_STARTING}, {"running", "running"},
    {"waitingForRoom", "running"},    {"suspending", "suspending"},
    {"stopping", VM_STATE_STOPPING},  {"forcing", VM_STATE_STOPPING},
    {"givingUp", VM_STATE_STOPPING},  {"ended", "ended"},
};

} // namespace

std::optional<RunState> run_state_next(RunState state, RunEvent event)
{
    for (const Transition &transition : TRANSITIONS)
        if ((transition.from & bit(state)) != 0 && transition.event == event)
            return transition.to;
    return std::nullopt;
}

const char *run_state_name(RunState state)
{
    return WORDS[size_t(state)].name;
}

const char *run_state_word(RunState state)
{
    return WORDS[size_t(state)].word;
}

bool run_state_is_up(RunState state)
{
    return state >= RunState::running;
}

bool Run::step(RunEvent event, const std::string &reason)
{
    const std::optional<RunState> next = run_state_next(m_state, event);
    if (!next)
        return false;
    const bool stays = m_state == *next && reason.empty();
    m_state = *next;
    // The reason of giving up is what is said when the engine has ended.
    if (m_state != RunState::ended && !stays)
        m_reason = reason;
    if ((bit(m_state) & ALIVE) != 0)
        m_reached = m_state;
    return true;
}
