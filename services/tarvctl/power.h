// Starting and ending VMs.
#pragma once

#include "services/tarvctl/service.h"
#include "services/tarvctl/store.h"

#include <string>

// Fails with ExitStatus::state unless the VM is neither running nor about to. The caller holds the
// VM's lock.
void check_not_running(const VmRef &ref, const std::string &intent);
// The state of a VM, waited for while its supervisor is between having a process and having a
// socket: coming or leaving. Fails with ExitStatus::service when it has lost the socket for good.
VmState settled_state(const VmRef &ref);
// Ends the VM's job and supervisor whatever they do, and forgets how it ended.
void end_by_force(const VmRef &ref);
// Whether the configuration names a saved state.
bool is_suspended(const struct kv *record);
// Drops a VM's saved state and its image. The caller holds the VM's lock.
void drop_state(Library &library, const VmRef &ref);
