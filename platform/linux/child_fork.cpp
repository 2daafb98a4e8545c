// Between fork and exec the child of a threaded process may only make async-signal-safe calls: all
// that needs memory is prepared before the fork.
#include "platform/linux/child_fork.h"

#include "platform/file.h"
#include "platform/posix/child_start.h"
#include "platform/posix/child_stdio.h"

#include <algorithm>
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
    explicit Plan(const ChildLaunch &what) : launch(what), texts(what) {}
    const ChildLaunch &launch;
    ChildTexts texts;
    ChildStdio stdio;
    std::vector<Range> closed; // the descriptors above 2 that the program does not inherit
    // `wait` is where a held child waits for its byte, and `go` the end that it comes from.
    UniqueFd report_read, report_write, wait, go;
    pid_t parent = getpid();
};

// A pipe that the exec closes; the child's end clear of the standard descriptors.
bool make_pipe(UniqueFd *reader, UniqueFd *writer, UniqueFd *childs)
{
    if (platform_pipe(reader, writer) != 0)
        return false;
    if (childs->get() < 3)
        childs->reset(fcntl(childs->get(), F_DUPFD_CLOEXEC, 3));
    return bool(*childs);
}

void plan_closing(Plan &plan)
{
    std::vector<int> open = plan.launch.kept;
    open.push_back(plan.report_write.get());
    if (plan.wait)
        open.push_back(plan.wait.get());
    std::sort(open.begin(), open.end());
    unsigned first = 3;
    for (const int fd : open) {
        if (unsigned(fd) > first)
            plan.closed.push_back({first, unsigned(fd) - 1});
        first = std::max(first, unsigned(fd) + 1);
    }
    plan.closed.push_back({first, UINT_MAX});
}

bool prepare(Plan &plan)
{
    for (const int fd : plan.launch.kept) {
        if (fd < 3 || fcntl(fd, F_GETFD) < 0) {
            errno = fd < 3 ? EINVAL : EBADF;
            return false;
        }
    }
    if (!plan.stdio.prepare(plan.launch) ||
        !make_pipe(&plan.report_read, &plan.report_write, &plan.report_write) ||
        (plan.launch.held && !make_pipe(&plan.wait, &plan.go, &plan.wait)))
        return false;
    plan_closing(plan);
    return true;
}

// The parent's handlers and blocked signals are its own affair; the program starts with neither,
// but with those blocked that its launch names.
void reset_signals(const std::vector<int> &blocked)
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++)
        sigaction(number, &standard, nullptr);
    sigset_t mask;
    sigemptyset(&mask);
    for (const int number : blocked)
        sigaddset(&mask, number);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
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
    return std::all_of(plan.launch.kept.begin(), plan.launch.kept.end(), keep_open);
}

// A parent that died before this was asked for sends nothing any more.
bool bind_to_parent(pid_t parent)
{
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        return false;
    if (getppid() != parent)
        _exit(127);
    return true;
}

// What this process copied of the other end is closed by then, else the stream would never end.
void wait_to_go(int fd)
{
    char byte;
    ssize_t count;
    do
        count = read(fd, &byte, 1);
    while (count < 0 && errno == EINTR);
    if (count != 1)
        _exit(0);
}

// Runs in the child and does not return.
[[noreturn]] void become_program(const Plan &plan)
{
    const ChildLaunch &launch = plan.launch;
    bool waited = false;
    if (launch.new_session)
        setsid();
    if ((launch.life == ChildLife::free || bind_to_parent(plan.parent)) &&
        (launch.directory == AT_FDCWD || fchdir(launch.directory) == 0) &&
        place_stdio(plan.stdio) && close_others(plan)) {
        reset_signals(launch.blocked);
        if (launch.held)
            wait_to_go(plan.wait.get());
        waited = true;
        execve(launch.program.c_str(), plan.texts.argv(), plan.texts.envp());
    }
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(plan.report_write.get(), &error, sizeof error);
    // Who lets it go must find somebody there, else the byte is a SIGPIPE.
    if (launch.held && !waited)
        wait_to_go(plan.wait.get());
    _exit(127);
}

// No handler of this process may run in the child.
pid_t fork_without_signals(const Plan &plan)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t pid = fork();
    if (pid == 0)
        become_program(plan);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return pid;
}

} // namespace

bool child_fork(const ChildLaunch &launch, ChildStart *started)
{
    Plan plan(launch);
    if (!prepare(plan))
        return false;
    started->pid = fork_without_signals(plan);
    if (started->pid < 0)
        return false;
    plan.report_write.reset();
    if (launch.held) {
        started->gate = std::move(plan.go);
        started->report = std::move(plan.report_read);
        return true;
    }
    const int error = child_report(plan.report_read.get());
    if (error == 0)
        return true;
    while (waitpid(started->pid, nullptr, 0) < 0 && errno == EINTR)
        ;
    errno = error;
    return false;
}
