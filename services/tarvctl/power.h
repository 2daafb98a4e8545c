// Starting and ending VMs.
#pragma once

#include "services/tarvctl/store.h"

#include <string>

// Fails with ExitStatus::state unless the VM is neither running nor about to. The caller holds the
// VM's lock.
void check_not_running(const VmRef &ref, const std::string &intent);
// Ends the VM's job and supervisor whatever they do, and forgets how it ended.
void end_by_force(const VmRef &ref);
// Whether the configuration names a saved state.
bool is_suspended(const struct kv *record);
// Drops a VM's saved state and its image. The caller holds the VM's lock.
void drop_state(Library &library, const VmRef &ref);
