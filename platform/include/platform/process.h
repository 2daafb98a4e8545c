// Processes: state and age of any, the peer of a socket.
#pragma once

#include <cstdint>
#include <sys/types.h>

// State codes of platform_process_state.
enum : int
{
    PROCESS_IDLE = 1,
    PROCESS_RUNNING = 2,
    PROCESS_SLEEPING = 3,
    PROCESS_STOPPED = 4,
    PROCESS_ZOMBIE = 5
};

// Whether the system's table of processes can be read at all. 0, or -1 with errno set.
int platform_process_table();
// The state code of a process; 0 when there is no such process, -1 with errno when the kernel
// can't be asked.
int platform_process_state(pid_t pid);
// When a process started: seconds since the epoch, or -1 with errno set.
int64_t platform_process_start(pid_t pid);
// A number that tells this process from a later one of the same pid, also after the machine was
// started again; 0 when it is gone.
uint64_t platform_process_identity(pid_t pid);

// The process and user at the other end of a local socket. -1 with errno set.
pid_t platform_peer_pid(int fd);
int platform_peer_uid(int fd, uid_t *uid);

// Whether a program gets rights that who starts it may not have.
bool platform_program_has_rights(const char *path);

// The environment of this process: NAME=value texts and a null at the end.
char **platform_environment();

// The login name of a user, or null.
const char *platform_user_name(uid_t uid);
