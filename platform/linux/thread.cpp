#include "platform/thread.h"

#include <sys/resource.h>
#include <unistd.h>

namespace {

// A fifth of the weight of a thread of its process's own niceness.
constexpr int STEPS = 7;

} // namespace

// The kernel keeps the niceness of each thread, although the call speaks of processes.
int platform_thread_give_way()
{
    const auto thread = static_cast<id_t>(gettid());
    return setpriority(PRIO_PROCESS, thread, getpriority(PRIO_PROCESS, thread) + STEPS);
}
