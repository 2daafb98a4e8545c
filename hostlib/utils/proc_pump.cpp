#include "hostlib/utils/proc_pump.h"

#include <cerrno>
#include <poll.h>
#include <utility>

namespace {

thread_local const ProcPump *current;

// Waits for either stream. False when that fails.
bool wait_ready(const ProcPump &pump, bool &stdout_ready, bool &stderr_ready)
{
    // A descriptor of -1 is passed over.
    struct pollfd streams[] = {{pump.stdout_read.get(), POLLIN, 0},
                               {pump.stderr_read.get(), POLLIN, 0}};
    while (poll(streams, 2, -1) < 0)
        if (errno != EINTR)
            return false;
    stdout_ready = streams[0].revents != 0;
    stderr_ready = streams[1].revents != 0;
    return true;
}

} // namespace

void ProcPump::run()
{
    // A callback can run a tool of its own.
    const ProcPump *outer = std::exchange(current, this);
    bool stdout_ready, stderr_ready;
    while ((stdout_read || stderr_read) && wait_ready(*this, stdout_ready, stderr_ready)) {
        if (stdout_ready && callback(context, stdout_read.get(), -1) <= 0)
            stdout_read.reset();
        if (stderr_ready && callback(context, -1, stderr_read.get()) <= 0)
            stderr_read.reset();
    }
    stdout_read.reset();
    stderr_read.reset();
    current = outer;
}

int proc_pump_stderr(const void *context)
{
    if (current == nullptr || current->callback != proc_getout_cb || current->context != context)
        return -1;
    return current->stderr_read.get();
}
