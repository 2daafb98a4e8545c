// The variadic arguments of a run as data: its argument vector, environment and descriptors.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <vector>

struct ProcPlan
{
    std::vector<char *> arguments;   // null at the end; empty with PROC_ARGV
    std::vector<char *> environment; // null at the end; empty when it is this process's own
    char *const *argv = nullptr;
    char *const *envp = nullptr;
    int stdin_fd = -1, stdout_fd = -1, stderr_fd = -1; // -1 where none was given
};

// Reads the arguments that the flag word announces. The strings are not copied.
ProcPlan proc_plan(const char *tool, uint32_t flags, va_list arguments);
// `base` with each entry of `extension` in place of the one of the same name, or at the end. Null
// at the end.
std::vector<char *> proc_extend_environment(char *const *base, char *const *extension);
