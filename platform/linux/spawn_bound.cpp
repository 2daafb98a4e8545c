// Between fork and exec the child of a threaded process may only make async-signal-safe calls: all
// that needs memory is prepared before the fork.
#include "platform/posix/child_stdio.h"

#include "platform/file.h"
#include "platform/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct Range
{
    unsigned first, last;
};

struct Plan
{
    const platform_launch &launch;
    ChildStdio stdio;
    std::vector<int> kept;     // descriptors above 2 that the program inherits
    std::vector<Range> closed; // all others above 2
    UniqueFd report_read, report_write;
    pid_t parent = getpid();
};

// A pipe that the exec closes; its write end clear of the standard descriptors.
bool make_report(Plan &plan)
{
    int ends[2];
    if (platform_pipe(ends) != 0)
        return false;
    plan.report_read.reset(ends[0]);
    plan.report_write.reset(ends[1]);
    if (ends[1] < 3)
        plan.report_write.reset(fcntl(ends[1], F_DUPFD_CLOEXEC, 3));
    return bool(plan.report_write);
}

void plan_closing(Plan &plan)
{
    std::vector<int> open = plan.kept;
    open.push_back(plan.report_write.get());
    std::sort(open.begin(), open.end());
    unsigned first = 3;
    for (const int fd : open) {
        if (unsigned(fd) > first)
            plan.closed.push_back({first, unsigned(fd) - 1});
        first = std::max(first, unsigned(fd) + 1);
    }
    plan.closed.push_back({first, UINT_MAX});
}

bool prepare(Plan &plan, const int *extra, int extra_count)
{
    for (int i = 0; i < extra_count; i++) {
        if (extra[i] < 3 || fcntl(extra[i], F_GETFD) < 0) {
            errno = extra[i] < 3 ? EINVAL : EBADF;
            return false;
        }
        plan.kept.push_back(extra[i]);
    }
    if (!plan.stdio.prepare(plan.launch) || !make_report(plan))
        return false;
    plan_closing(plan);
    return true;
}

// The parent's handlers and blocked signals are its own affair; the program starts with neither.
void reset_signals()
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++)
        sigaction(number, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Inherits a descriptor under its own number.
bool keep_open(int fd)
{
    return fcntl(fd, F_SETFD, 0) == 0;
}

bool place_stdio(const ChildStdio &stdio)
{
    for (int target = 0; target < 3; target++) {
        const int source = stdio.source(target);
        if (source == target) {
            if (!keep_open(target))
                return false;
            continue;
        }
        const int null = source >= 0 ? -1 : open("/dev/null", target == 0 ? O_RDONLY : O_WRONLY);
        const int from = source >= 0 ? source : null;
        if (from < 0 || (from != target && dup2(from, target) < 0))
            return false;
        if (null > 2)
            close(null);
    }
    return true;
}

bool close_others(const Plan &plan)
{
    for (const Range &range : plan.closed)
        if (syscall(SYS_close_range, range.first, range.last, 0) != 0)
            return false;
    return std::all_of(plan.kept.begin(), plan.kept.end(), keep_open);
}

// Runs in the child and does not return.
[[noreturn]] void become_program(const Plan &plan)
{
    const platform_launch &launch = plan.launch;
    const bool bound = prctl(PR_SET_PDEATHSIG, SIGKILL) == 0;
    // A parent that died before the line above sends nothing any more.
    if (bound && getppid() != plan.parent)
        _exit(127);
    if (bound && (launch.dirfd == AT_FDCWD || fchdir(launch.dirfd) == 0) &&
        place_stdio(plan.stdio) && close_others(plan)) {
        reset_signals();
        execve(launch.path, launch.argv, launch.envp != nullptr ? launch.envp : environ);
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(plan.report_write.get(), &error, sizeof error);
    _exit(127);
}

// The child's error before its exec, or 0 once the program runs.
int read_report(Plan &plan)
{
    plan.report_write.reset();
    int error = 0;
    ssize_t count;
    while ((count = read(plan.report_read.get(), &error, sizeof error)) < 0 && errno == EINTR)
        ;
    return count == sizeof error ? error : 0;
}

} // namespace

pid_t platform_spawn_bound(const platform_launch &launch, const int *extra, int extra_count)
{
    Plan plan{launch, {}, {}, {}, {}, {}};
    if (!prepare(plan, extra, extra_count))
        return -1;
    // No handler of this process may run in the child.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t pid = fork();
    if (pid == 0)
        become_program(plan);
    const int fork_error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (pid < 0) {
        errno = fork_error;
        return -1;
    }
    const int error = read_report(plan);
    if (error == 0)
        return pid;
    while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
        ;
    errno = error;
    return -1;
}
