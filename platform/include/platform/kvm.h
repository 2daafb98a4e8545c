// Hardware help for running guests.
#pragma once

// 0 when this user can run guests with the processor's help; -1 with errno: ENOTSUP (the processor
// offers none), or why the system's device can't be opened.
int platform_kvm_check();
