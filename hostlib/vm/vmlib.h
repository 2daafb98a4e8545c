// The VM library: a directory with one subdirectory per VM.
#pragma once

struct vm;
struct vmlib;

// Opens the library at a path, or at the setting "vm_lib_dir". A path that can't be opened gives a
// handle that finds nothing. Null with ENXIO without path and setting.
struct vmlib *vmlib_open(const char *path);
// Closes a library; null is accepted.
void vmlib_close(struct vmlib *lib);

// The next VM's identifier in directory order, valid until the next read; null at the end.
const char *vmlib_next(struct vmlib *lib);
void vmlib_reset(struct vmlib *lib);
// 1 when the path is a VM directory.
int vmlib_is_vm_dir(const char *name, int dirfd, const char *path);

// Opens a VM by identifier (and tag); by identifier or name. Null when there is none.
struct vm *vmlib_get(struct vmlib *lib, const char *id, const char *tag);
struct vm *vmlib_lookup(struct vmlib *lib, const char *id_or_name, const char *tag);
// The identifier that an identifier or name stands for, or null.
const char *vmlib_lookupid(struct vmlib *lib, const char *id_or_name);
// "<library>/<id>", in a buffer of this thread.
const char *vmlib_vm_dir(struct vmlib *lib, const char *id);

// Makes a VM directory (a random identifier without one) and opens it. Null with errno (logged).
struct vm *vmlib_create(struct vmlib *lib, const char *id, const char *tag);
// Removes a VM directory. With "delete_logs" and "log_dir" set and no tag the result is positive
// whatever happened.
int vmlib_delete(struct vmlib *lib, const char *id, const char *tag);

// The names of a VM's tagged versions; one enumeration at a time on a thread.
const char *vmlib_tag_first(struct vmlib *lib, const char *id);
const char *vmlib_tag_next(struct vmlib *lib, const char *id);
// Removes directories without a configuration. Always 0.
int vmlib_purge(struct vmlib *lib);
