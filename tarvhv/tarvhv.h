// Starting VMs in the application's own care, and what the library says about them.
#pragma once

#include <cstdint>

// Where the library's diagnostics go.
void tarvhv_set_log_fd(int fd);

// Starts a VM in this process's care with a start mode (0 normal, 1 forced, 2 recovery). 0, or -1
// with errno: ENOSYS where VMs are not started by the application (host type 1).
int TarvHVStartVM(const char *id, int32_t options);
// VMs that run in this process's care.
unsigned TarvHVGetNumberOfVMsRunning();

// Names of the notifications posted in this process when such a VM starts and stops; their object
// is the VM identifier.
extern const char *const TarvVMDidStartNotification;
extern const char *const TarvVMDidStopNotification;
