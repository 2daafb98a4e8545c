#include "hostlib/utils/proc.h"

#include "hostlib/utils/proc_plan.h"
#include "hostlib/utils/proc_pump.h"
#include "hostlib/utils/utils.h"

#include "platform/file.h"
#include "platform/process.h"

#include <cerrno>
#include <cstring>
#include <sys/wait.h>

namespace {

// Makes a pipe for one of the tool's streams. False with errno set.
bool make_pipe(UniqueFd &read_end, UniqueFd &write_end, int &stream)
{
    int ends[2];
    if (platform_pipe(ends) != 0)
        return false;
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
    stream = ends[1];
    return true;
}

// Starts the tool; the read ends of what it prints stay in `pump`. The pid, or -1 with errno set.
pid_t start(const char *tool, int dirfd, const ProcPlan &plan, uint32_t flags, ProcPump &pump)
{
    UniqueFd stdout_write, stderr_write;
    platform_launch launch = {tool,          plan.argv,      plan.envp,     dirfd,
                              plan.stdin_fd, plan.stdout_fd, plan.stderr_fd};
    if ((flags & PROC_STDOUT) == 0 && pump.callback != nullptr &&
        !make_pipe(pump.stdout_read, stdout_write, launch.stdout_fd))
        return -1;
    if ((flags & PROC_STDERR) == 0) {
        if ((flags & PROC_ERR2OUT) != 0)
            launch.stderr_fd = launch.stdout_fd;
        else if (pump.callback != nullptr &&
                 !make_pipe(pump.stderr_read, stderr_write, launch.stderr_fd))
            return -1;
    }
    return platform_spawn(launch);
}

// The child's end as a shell reports it; 129 when it can't be waited for.
int wait_status(pid_t pid)
{
    int status = 1;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
        ;
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    return WIFSTOPPED(status) ? WSTOPSIG(status) : 128 + WTERMSIG(status);
}

// To the launch a descriptor of -1 means none; one that was given has to be there.
bool given_are_valid(const ProcPlan &plan, uint32_t flags)
{
    if (((flags & PROC_STDIN) == 0 || plan.stdin_fd >= 0) &&
        ((flags & PROC_STDOUT) == 0 || plan.stdout_fd >= 0) &&
        ((flags & PROC_STDERR) == 0 || plan.stderr_fd >= 0))
        return true;
    errno = EBADF;
    return false;
}

} // namespace

int proc_fexecv(const char *tool, int dirfd, proc_out_cb callback, void *context, uint32_t flags,
                va_list arguments)
{
    const ProcPlan plan = proc_plan(tool, flags, arguments);
    ProcPump pump = {callback, context, {}, {}};
    const pid_t pid =
        given_are_valid(plan, flags) ? start(tool, dirfd, plan, flags, pump) : pid_t(-1);
    if (pid < 0) {
        dprintf(log_fd, "proc: failed to start %s tool: %s\r\n", tool, std::strerror(errno));
        return -1;
    }
    if ((flags & PROC_NOWAIT) != 0)
        return pid;
    pump.run();
    return wait_status(pid);
}

int proc_fexec(const char *tool, int dirfd, proc_out_cb callback, void *context, uint32_t flags,
               ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int status = proc_fexecv(tool, dirfd, callback, context, flags, arguments);
    va_end(arguments);
    return status;
}

int proc_exec(const char *tool, proc_out_cb callback, void *context, uint32_t flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int status = proc_fexecv(tool, AT_FDCWD, callback, context, flags, arguments);
    va_end(arguments);
    return status;
}
