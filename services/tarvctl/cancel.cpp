#include "services/tarvctl/cancel.h"

#include "services/tarvctl/answer.h"

#include <csignal>

namespace {

volatile sig_atomic_t cancelled = 0;

} // namespace

void catch_cancel()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { cancelled = 1; };
    // No SA_RESTART: waits end with EINTR.
    for (int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction earlier;
        // What the caller has this process ignore (nohup) stays ignored.
        if (sigaction(number, nullptr, &earlier) == 0 && earlier.sa_handler != SIG_IGN)
            sigaction(number, &action, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
}

void check_cancelled()
{
    if (cancelled)
        throw Failure(ExitStatus::cancelled, "cancelled");
}
