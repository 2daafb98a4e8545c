// Hands the output of a running tool to a callback until both of its streams have ended.
#pragma once

#include "hostlib/utils/proc.h"

#include "platform/unique_fd.h"

struct ProcPump
{
    proc_out_cb callback;
    void *context;
    UniqueFd stdout_read, stderr_read; // the read ends of the pipes that were made

    // Returns when both have ended, or can't be waited for. Both are closed then.
    void run();
};

// The standard error that the pump of this thread holds while it calls the line reader with
// `context`; -1 when there is none.
int proc_pump_stderr(const void *context);
