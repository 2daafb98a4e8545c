#include "platform/watch.h"

#include <sys/syscall.h>
#include <unistd.h>

int platform_watch_process(pid_t pid)
{
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

int platform_watch_signal(int watch, int signal_number)
{
    return static_cast<int>(syscall(SYS_pidfd_send_signal, watch, signal_number, nullptr, 0));
}
