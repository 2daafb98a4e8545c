#include "hostlib/utils/utils.h"

#include <unistd.h>

int log_fd = STDERR_FILENO;
int log_level = 0;

void _auto_fd_close(int *fd)
{
    if (fd != nullptr && *fd >= 0)
        close(*fd);
}

void _auto_file_close(FILE **stream)
{
    if (stream != nullptr && *stream != nullptr)
        std::fclose(*stream);
}
