// Client of the launch service and of the supervisors of running VMs. Every call blocks; the first
// must happen on one thread.
#pragma once

#include <cstdint>
#include <sys/types.h>

struct json;
struct kv;

// The socket of the launch service; looked up once, in the settings, and kept.
const char *vms_launch_socket();
// Connects to the launch service, or to a VM's service socket, and sends a command (none when
// null). The descriptor, or -1.
int vconnect(const char *command);
int vms_connect(const char *id, const char *command);

// The status of a running VM as a new mapping (kv_free): "pid", "start_date", what the supervisor
// reports and "status" ("running" or "malfunction"). Null when it does not run. Takes up to 5 s.
struct kv *vms_status(const char *id);
// The exit status that the launch service keeps for the VM; -1 when it can't be asked.
int vms_exit_status(const char *id);
// Waits until the VM's process has ended; its exit status, or -1 with ETIMEDOUT. 0: no limit.
int vms_wait(const char *id, unsigned timeout_s);
// Removes the VM's job. 0 or -1.
int vms_stop(const char *id);
// The VM's process, or -1.
pid_t vms_getpid(const char *id);
// 1 when the VM's service socket accepts a connection.
int vms_isrunning(const char *id);

// A new kv value from a JSON node; null for null.
struct kv *kv_from_json(const struct json *node);
// Merges a JSON node into a mapping. Always 0.
int kv_set_json(struct kv *kv, const struct json *node);
