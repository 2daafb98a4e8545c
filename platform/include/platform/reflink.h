// Copies of files that share their blocks.
#pragma once

// Makes `to`, an empty file, a copy of `from` that shares its blocks until one of them is written.
// 0, or -1 with errno set where the file system or the system can't.
int platform_reflink(int from, int to);
