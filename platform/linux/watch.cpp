#include "platform/watch.h"

#include <csignal>
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

int platform_watch_queue(int watch, int signal_number, int value)
{
    siginfo_t info = {};
    info.si_signo = signal_number;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_int = value;
    return static_cast<int>(syscall(SYS_pidfd_send_signal, watch, signal_number, &info, 0));
}
