#include "platform/reflink.h"

#include <cerrno>

// The system clones into a new name only, never into an open file.
int platform_reflink(int, int)
{
    errno = ENOTSUP;
    return -1;
}
