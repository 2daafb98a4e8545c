#include "tarvhv/display/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace {

std::atomic<int> descriptor{STDERR_FILENO};

} // namespace

void display_set_log_fd(int fd)
{
    descriptor = fd;
}

int display_log_fd()
{
    return descriptor;
}

void display_log(const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    dprintf(descriptor, "display: %s\r\n", text);
}
