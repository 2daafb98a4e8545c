// Starting VMs in the application's own care, and what the library says about them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Where the library's diagnostics go.
void tarvhv_set_log_fd(int fd);

// The supervisor program that VMs in this process's care are run by: an absolute path.
void tarvhv_set_supervisor(const char *path);
// Who is told of the notifications below, on the main thread: their name, the VM and whether it
// ended with an error.
using tarvhv_observer = std::function<void(const char *name, const std::string &id, bool failed)>;
void tarvhv_set_observer(tarvhv_observer observer);

// Starts a VM in this process's care with a start mode (0 normal, 1 forced, 2 recovery); main
// thread. 0, or -1 with errno: ENOSYS where VMs are not started by the application (host type 1),
// EALREADY when it is in this process's care, ENOENT without a supervisor. The VM ends with this
// process at the latest.
int TarvHVStartVM(const char *id, int32_t options);
// VMs that run in this process's care.
unsigned TarvHVGetNumberOfVMsRunning();
// Tells them to end, in an orderly way; each counts as running until it has. Main thread.
void tarvhv_end_vms();

// Names of the notifications posted in this process when such a VM starts (its first screen can be
// opened) and stops; their object is the VM identifier.
extern const char *const TarvVMDidStartNotification;
extern const char *const TarvVMDidStopNotification;
