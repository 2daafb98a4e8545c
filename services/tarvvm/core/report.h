// The last word of a job to the launch service that may not see how it ends.
#pragma once

#include <string>

// Writes {"status":N,"message":"…"} to the file that TARV_JOB_REPORT names, if any, under a
// temporary name first. 0, or -1 with errno set.
int report_write(int status, const std::string &message);
