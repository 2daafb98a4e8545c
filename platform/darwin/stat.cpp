#include "platform/stat.h"

struct timespec platform_modified(const struct stat &file)
{
    return file.st_mtimespec;
}
