#include "tarvhv/tarvhv.h"

#include "tarvhv/display/log.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

const char *const TarvVMDidStartNotification = "com.quelda.tarvhv.notification.start";
const char *const TarvVMDidStopNotification = "com.quelda.tarvhv.notification.stop";

namespace {

std::atomic<int> log_descriptor{STDERR_FILENO};

} // namespace

void tarvhv_set_log_fd(int fd)
{
    log_descriptor = fd;
}

int TarvHVStartVM(const char *, int32_t)
{
    errno = ENOSYS;
    return -1;
}

unsigned TarvHVGetNumberOfVMsRunning()
{
    return 0;
}

void display_log(const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    dprintf(log_descriptor, "display: %s\r\n", text);
}
