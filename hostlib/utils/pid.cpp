#include "hostlib/utils/utils.h"

#include "platform/process.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

int pid_alive(pid_t pid)
{
    static bool readable = false;
    if (pid == -1)
        return 0;
    if (!readable && platform_process_table() != 0) {
        dprintf(log_fd, "utils: %d: failed to get proc size: %s\r\n", pid, std::strerror(errno));
        return 0;
    }
    readable = true;
    const int state = platform_process_state(pid);
    if (state < 0) {
        dprintf(log_fd, "utils: %d: failed to get proc state: %s\r\n", pid, std::strerror(errno));
        return 0;
    }
    // Bit 1 of the code is set for the running and the sleeping state alone.
    return (state >> 1) & 1;
}
