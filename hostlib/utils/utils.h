// Small functions of the host library: paths under the home directory, directory trees, lock
// files, process liveness, versions and the host's primary address.
//
// A path that begins with "~/" is relative to the home directory. Functions fail with -1, null or
// all ones and errno set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <netinet/in.h>
#include <sys/types.h>

// Where the host library's diagnostics go: a descriptor, at first 2. One line each, "\r\n" at the
// end.
extern int log_fd;
// How much is logged; 0 at first, 2 on a terminal.
extern int log_level;

// The home directory, never null, "" when unknown. Root gets that of the password database.
const char *home_dir();
// A descriptor of the home directory, opened once, or -1.
int home_fd();

// open(2) of a possibly home-relative path. With O_CREAT a mode follows, and missing parent
// directories are made with mode 0755. EINVAL for a null path.
int openx(const char *path, int flags, ...);
// Puts /dev/null in the place of standard descriptors that this process was started without: no
// file that it opens may take the number of one. 0, or -1 with errno set.
int standard_fds_open();
// openat(2) and fdopen(3) in one. Write-only streams append. EINVAL for a null path.
FILE *fopenat(int dirfd, const char *path, int flags, ...);
// Makes a directory and its missing parents; an existing one is success.
int mkdirat_p(int dirfd, const char *path, mode_t mode);
// rename(2) of possibly home-relative paths.
int renamex(const char *old_path, const char *new_path);
// Removes a tree without following links or crossing devices. Special files are left, so that a
// tree holding one fails with ENOTEMPTY. errno is untouched on success.
int rmdirat(int dirfd, const char *path);

// 1 when the process runs or sleeps; 0 when it is idle, stopped, a zombie or absent. Not for two
// threads at once.
int pid_alive(pid_t pid);

// Takes the lock file `name` in the directory of the setting "vm_lock_dir", shared or exclusive.
// The descriptor holds the lock until flock_unlock. flock_lock waits; flock_trylock fails with
// EWOULDBLOCK.
int flock_lock(const char *name, bool exclusive);
int flock_trylock(const char *name, bool exclusive);
void flock_unlock(int fd);

// Compares dotted decimal versions part by part: negative, 0 or positive. Null counts as 0.
int vercmp(const char *a, const char *b);
// sscanf of the first `length` bytes of a text that need not end in NUL.
int snscanf(const char *text, size_t length, const char *format, ...)
    __attribute__((format(scanf, 3, 4)));
// Packs "major.minor.patch.build" into 16 bits each, major highest; 0 when there is no number.
uint64_t atover(const char *text, size_t length);
// Always null.
char *vertoa(uint64_t version);

// The host's primary IPv4 address in network byte order; all ones with errno set when it has none.
in_addr_t inet_prim_addr();

// Scope-exit clean-ups: close what a variable holds, if anything.
void _auto_fd_close(int *fd);
void _auto_file_close(FILE **stream);
