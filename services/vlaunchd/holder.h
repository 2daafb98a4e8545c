// Which process is the launch service that keeps the records of a directory.
//
// The service locks the file ".service" in the directory of its records for as long as it lives and
// leaves its pid there. So two services never write the same records, and one that hangs can be
// told from one that is gone: a process that is stopped keeps its lock.
#pragma once

#include "platform/unique_fd.h"

#include <chrono>
#include <string>

#include <sys/types.h>

// The directory of the records of the service with this socket.
std::string records_path(const std::string &socket_path);

// Makes this process the holder, waiting for an earlier one to leave. The lock, or none with errno:
// EBUSY when the earlier one does not.
UniqueFd hold_records(int directory, std::chrono::milliseconds patience);

// A watch on the process that holds the records; none with errno, ESRCH when nobody does.
UniqueFd watch_holder(const std::string &records, pid_t *pid);
