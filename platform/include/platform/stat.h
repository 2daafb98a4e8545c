// What systems call the same member of struct stat.
#pragma once

#include <ctime>
#include <sys/stat.h>

// When a file was last modified.
struct timespec platform_modified(const struct stat &file);
