// The little of the image library that the VM store needs.
#pragma once

// A descriptor of the image library directory (setting "img_lib_dir"), opened once, or -1.
int img_libfd();
// Removes an image: an absolute name at once, a relative one by queueing it for later removal. The
// queue survives a crash. 0, or -1 with errno set.
int img_unlink(const char *name);
// Removes the queued images that nothing needs any more. `in_use` (may be null) is asked for each
// name; true keeps it queued. The number removed, or -1.
int img_purge(bool (*in_use)(const char *name, void *arg), void *arg);
