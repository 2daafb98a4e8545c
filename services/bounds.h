// Bounds that several services keep, each with its reason.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

// The memory of a VM, in bytes. With less a boot sector runs and nothing behind it; more than 42
// bits of addresses few processors have, and QEMU then fails only once it runs.
inline constexpr uint64_t VM_RAM_MIN = uint64_t(16) << 20;
inline constexpr uint64_t VM_RAM_MAX = uint64_t(4) << 40;
// With less the UEFI firmware comes to nothing, showing nothing (tried with OVMF of 2022).
inline constexpr uint64_t VM_RAM_UEFI_MIN = uint64_t(64) << 20;
// The processors that QEMU's q35 takes without further devices.
inline constexpr unsigned VM_CPU_MAX = 255;

// How long a guest has to power off once it was asked, unless the setting "stop_wait" says
// otherwise: a desktop that saves its session needs that long. Longer than an hour nobody waits,
// and such a setting is a slip of the pen.
inline constexpr std::chrono::seconds STOP_WAIT_USUAL{20}, STOP_WAIT_MAX{3600};
// What a supervisor has for the rungs below that one before whoever stands above it goes on: it
// writes its report and removes its socket meanwhile.
inline constexpr std::chrono::seconds SUPERVISOR_GRACE{3};

// Goes with the SIGTERM that ends a job because somebody asked for its end, so that a supervisor
// can tell it from the end of the session, at which its VM is suspended.
inline constexpr int JOB_REMOVED = 1;

// The log of a VM, in bytes. Its supervisor keeps it below this and drops the older half when it is
// full; a mebibyte is some ten thousand lines.
inline constexpr size_t VM_LOG_MAX = size_t(1) << 20;
// One that is as large as this was filled by something else and begins anew with the next start.
inline constexpr size_t VM_LOG_FOREIGN_MAX = 4 * VM_LOG_MAX;
