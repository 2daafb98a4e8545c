// How a run that has ended is told: what to say of the engine's end, if anything.
#pragma once

#include "services/tarvvm/core/run_state.h"
#include "services/tarvvm/machine/engine_process.h"

#include <string>

struct RunVerdict
{
    Run run;                  // as it was before its end
    EngineEnd end;            // of the engine
    bool killed = false;      // by the ladder's last rung
    bool suspended = false;   // the state is safe
    std::string state_file;   // the saved state that was to be resumed; empty: none was
    bool state_spent = false; // and the guest may have run from it
};

// A sentence for people; empty when the run ended as was asked, or as the guest did.
std::string run_verdict(const RunVerdict &verdict);
