// What the engine needs to know of this host: settings, acceleration, the files of a machine.
#pragma once

#include "services/engine/launch.h"
#include "services/failure.h"

#include <string>

// QEMU's path: the setting "qemu_executable", else the usual one.
std::string qemu_program();
// Reads the settings and the host into `host`; `vm_dir` is the VM's directory. It fails when
// acceleration was demanded and there is none, or a setting has no meaning.
ServiceFailure engine_host_read(const std::string &vm_dir, EngineHost *host);

// Checks what a machine's launch takes from the disk: QEMU, firmware, images (whose formats are
// noted), the bridges. A failure names what is missing.
ServiceFailure engine_host_check(const Machine &machine, EngineHost *host);

// Gives a UEFI machine its own firmware variable store, a copy of the template, if it has none yet.
ServiceFailure engine_host_make_nvram(const Machine &machine, const EngineHost &host);

// The rule of the setting "engine_accel": auto takes KVM where it is usable (`kvm_error` 0, else an
// errno), kvm demands it, tcg does without.
ServiceFailure engine_accel_decide(const std::string &setting, int kvm_error, Accel *accel);
