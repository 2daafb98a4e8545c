#include "services/tarvvm/core/verdict.h"

namespace {

// An engine that ends by itself while it is being given up says more than why it was.
std::string failure_of(const RunVerdict &verdict)
{
    if (verdict.suspended || verdict.run.state() == RunState::forcing)
        return "";
    if (verdict.run.state() == RunState::givingUp && (verdict.killed || verdict.end.status == 0))
        return verdict.run.reason();
    if (verdict.end.status != 0)
        return verdict.end.message;
    return run_state_is_up(verdict.run.reached()) ? "" : "the engine ended before the guest ran";
}

} // namespace

std::string run_verdict(const RunVerdict &verdict)
{
    std::string failure = failure_of(verdict);
    const RunState reached = verdict.run.reached();
    if (failure.empty() || verdict.state_file.empty() || run_state_is_up(reached))
        return failure;
    if (reached == RunState::resuming)
        failure = "the saved state " + verdict.state_file + " can't be resumed: " + failure;
    if (verdict.state_spent)
        return failure + " (the saved state is used up; the next start boots afresh)";
    return failure + " (the saved state is kept; tarvctl start --recovery boots without it)";
}
