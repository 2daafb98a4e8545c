#include "hostlib/utils/proc.h"

#include "hostlib/utils/proc_plan.h"
#include "hostlib/utils/proc_pump.h"
#include "hostlib/utils/utils.h"

#include "platform/child.h"
#include "platform/file.h"

#include <cerrno>
#include <cstring>

namespace {

// The status of a run that could not be waited for.
constexpr int NOT_WAITED_FOR = 129;

// Makes a pipe for one of the tool's streams. False with errno set.
bool make_pipe(UniqueFd &read_end, UniqueFd &write_end, int &stream)
{
    if (platform_pipe(&read_end, &write_end) != 0)
        return false;
    stream = write_end.get();
    return true;
}

// Starts the tool; the read ends of what it prints stay in `pump`. 0, or -1 with errno set.
int start(Child &child, ChildLaunch launch, uint32_t flags, ProcPump &pump)
{
    UniqueFd stdout_write, stderr_write;
    if ((flags & PROC_STDOUT) == 0 && pump.callback != nullptr &&
        !make_pipe(pump.stdout_read, stdout_write, launch.out))
        return -1;
    if ((flags & PROC_STDERR) == 0) {
        if ((flags & PROC_ERR2OUT) != 0)
            launch.err = launch.out;
        else if (pump.callback != nullptr && !make_pipe(pump.stderr_read, stderr_write, launch.err))
            return -1;
    }
    return child.start(launch);
}

// To the launch a descriptor of -1 means none; one that was given has to be there.
bool given_are_valid(const ChildLaunch &launch, uint32_t flags)
{
    if (((flags & PROC_STDIN) == 0 || launch.in >= 0) &&
        ((flags & PROC_STDOUT) == 0 || launch.out >= 0) &&
        ((flags & PROC_STDERR) == 0 || launch.err >= 0))
        return true;
    errno = EBADF;
    return false;
}

} // namespace

int proc_fexecv(const char *tool, int dirfd, proc_out_cb callback, void *context, uint32_t flags,
                va_list arguments)
{
    ChildLaunch launch = proc_plan(tool, flags, arguments);
    launch.directory = dirfd;
    ProcPump pump = {callback, context, {}, {}};
    Child child;
    if (!given_are_valid(launch, flags) || start(child, std::move(launch), flags, pump) != 0) {
        dprintf(log_fd, "proc: failed to start %s tool: %s\r\n", tool, std::strerror(errno));
        return -1;
    }
    if ((flags & PROC_NOWAIT) != 0)
        return child.release();
    pump.run();
    int status;
    return child.wait(&status) == 0 ? child_exit_status(status) : NOT_WAITED_FOR;
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
