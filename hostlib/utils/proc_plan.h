// The variadic arguments of a run as data.
#pragma once

#include "platform/child.h"

#include <cstdarg>
#include <cstdint>

// Reads the arguments that the flag word announces: a launch with its arguments, environment and
// the descriptors that were given.
ChildLaunch proc_plan(const char *tool, uint32_t flags, va_list arguments);
// `base` with each entry of `extension` in place of the one of the same name, or at the end.
std::vector<std::string> proc_extend_environment(char *const *base, char *const *extension);
