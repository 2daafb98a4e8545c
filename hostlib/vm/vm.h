// The record of one VM: the files in its directory, read and written under file locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

struct kv;

inline constexpr size_t VM_ID_MAX = 36;

struct vm
{
    int32_t dirfd;          // the VM's directory
    char *config_name;      // configuration file, once settled
    char *tag;              // of a tagged version
    char id[VM_ID_MAX + 1]; // "" when unset
};

// Opens the record in a directory, or that of a configuration file. Null with errno (logged).
struct vm *vm_open(const char *path);
struct vm *vm_openat(int dirfd, const char *path);
// Closes a record; null is accepted.
void vm_close(struct vm *vm);

int vm_dir(const struct vm *vm);
const char *vm_getid(const struct vm *vm);
void vm_setid(struct vm *vm, const char *id);
const char *vm_gettag(const struct vm *vm);
void vm_settag(struct vm *vm, const char *tag);
// The configuration's file name: "config.yaml", or "<id>.yaml" where only that exists.
const char *vm_config_path(struct vm *vm);

// The configuration as a new mapping (kv_free), or null.
struct kv *vm_read_config(struct vm *vm);
// Rewrites the configuration in place, under its exclusive lock. 0, or -1 with errno (logged) and
// the old text whole.
int vm_write_config(struct vm *vm, const struct kv *config);

// The suspended state: a new mapping with "state_file", or null.
struct kv *vm_read_state(struct vm *vm);
int vm_write_state(struct vm *vm, const char *image);
// Drops the suspended state and its image. Always 0.
int vm_remove_state(struct vm *vm);

// The version: a new mapping with "tag", or null.
struct kv *vm_read_version(struct vm *vm);
// Writes the "tag" of a mapping, or a text node; without a node removes the file.
int vm_write_version(struct vm *vm, const struct kv *version);

const char *vm_nvram_path();
// The latest modification time of the configuration, "nvram" and the disks in the image library.
int vm_mtime(struct vm *vm, struct timespec *time);
int vm_atime(struct vm *vm, struct timespec *time);
// Modification time of the first disk in seconds since the epoch, or -1.
int64_t vm_stop_date(struct vm *vm);
