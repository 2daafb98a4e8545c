#include "platform/reflink.h"

#include <linux/fs.h>
#include <sys/ioctl.h>

int platform_reflink(int from, int to)
{
    return ioctl(to, FICLONE, from);
}
