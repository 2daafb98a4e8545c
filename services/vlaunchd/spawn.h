// Starts a job's process, held until it is on record.
#pragma once

#include "platform/child.h"
#include "services/vlaunchd/job.h"

// A process that was made but runs no program yet. Dropped without release(), or when the launch
// service dies, it ends without having done anything.
class HeldProcess
{
public:
    // Makes the process: a session of its own, standard output and error to `output`, standard
    // input empty, "/" as its directory. 0, or -1 with errno set.
    int prepare(const JobRequest &request, int output);
    pid_t pid() const { return m_child.pid(); }
    // Lets the program begin. 0, or -1 with the errno of its start, the process being gone then.
    int release();

private:
    Child m_child;
};
