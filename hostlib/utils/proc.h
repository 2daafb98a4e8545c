// Runs external tools and reads what they print. No shell and no search in PATH.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <sys/types.h>

// The flag word. Its low 16 bits are the number of argument strings. The variadic arguments that
// follow it are read in the order of these rows.
inline constexpr uint32_t PROC_NARGS = 0xFFFF;     // mask: that many const char *
inline constexpr uint32_t PROC_ARGV = 0x100000;    // or one char *const *, null at its end
inline constexpr uint32_t PROC_ENV = 0x10000;      // one char *const * of NAME=value, or null
inline constexpr uint32_t PROC_STDIN = 0x400000;   // one int
inline constexpr uint32_t PROC_STDOUT = 0x40000;   // one int
inline constexpr uint32_t PROC_STDERR = 0x80000;   // one int
inline constexpr uint32_t PROC_ERR2OUT = 0x200000; // standard error where standard output goes
inline constexpr uint32_t PROC_NOWAIT = 0x800000;  // answer the pid at once

// Called with output ready on exactly one descriptor, the other being -1. The bytes consumed; 0 or
// less ends that stream.
using proc_out_cb = ssize_t (*)(void *context, int stdout_fd, int stderr_fd);
// Called with each line of output, its newline included; not NUL-terminated.
using proc_line_fn = void (*)(void *arg, const char *line, size_t length);
using proc_line_closure = std::function<void(const char *line, size_t length)>;

struct proc_line_ctx
{
    proc_line_fn fn; // or null
    void *arg;       // argument of fn; without fn a const proc_line_closure *
    FILE *fp;        // reader on the output, made on first use
};

// Run a tool and wait for it. Its exit code, 128 + the signal that killed it, 129 when it could not
// be waited for, -1 when it could not be started (logged); its pid with PROC_NOWAIT.
int proc_fexecv(const char *tool, int dirfd, proc_out_cb callback, void *context, uint32_t flags,
                va_list arguments);
int proc_fexec(const char *tool, int dirfd, proc_out_cb callback, void *context, uint32_t flags,
               ...);
int proc_exec(const char *tool, proc_out_cb callback, void *context, uint32_t flags, ...);
// The same, with the output as lines; standard error is passed on to this process's own.
int proc_getln(const char *tool, proc_line_fn fn, void *arg, uint32_t flags, ...);
int proc_getfln(const char *tool, int dirfd, proc_line_fn fn, void *arg, uint32_t flags, ...);
int proc_getln_b(const char *tool, const proc_line_closure &closure, uint32_t flags, ...);
// The callback of the three above; its context is a proc_line_ctx.
ssize_t proc_getout_cb(void *context, int stdout_fd, int stderr_fd);
