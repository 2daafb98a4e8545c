// Holds on to one process, a child or not, so that it can be waited for and signalled without
// ever meeting a later process of the same pid.
#pragma once

#include <sys/types.h>

// A descriptor that polls readable once the process has ended; close-on-exec. -1 with errno set:
// ESRCH when there is none.
int platform_watch_process(pid_t pid);
// Sends a signal to the process behind such a descriptor. 0, or -1 with errno set: ESRCH when it
// has ended.
int platform_watch_signal(int watch, int signal_number);
// The same with a number that the receiver can read, where the system can send one (else without).
int platform_watch_queue(int watch, int signal_number, int value);
