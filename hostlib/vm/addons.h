// The version of the guest add-ons of a VM, and its firmware variables.
#pragma once

#include <cstddef>
#include <sys/types.h>

struct kv;
struct vm;

// The add-ons version as a new text node, or null: from the firmware variable, the version file in
// the guest's disk, or the record in the disk's boot sector.
struct kv *vm_read_addons_version(struct vm *vm);
// The value of one firmware variable, or of all of them (no name) in a container.
struct kv *vm_read_nvram(struct vm *vm, const char *name);
// Collects lines of the variable tool; an output callback of the process runner.
ssize_t vm_read_nvram_cb(void *collector, int stdout_fd, int stderr_fd);
// Sets a firmware variable, or deletes it (no value). 0, or -1 with errno (logged).
int vm_write_nvram(struct vm *vm, const char *name, const char *value);
// The version record in a disk image's boot sector as a new mapping, or null (logged).
struct kv *pyver_read(const char *image);
