#include "hostlib/utils/proc_plan.h"

#include "hostlib/utils/proc.h"
#include "platform/process.h"

#include <algorithm>
#include <string_view>

namespace {

// What stands before the first "=", or all of an entry that has none.
std::string_view name_of(const char *entry)
{
    const std::string_view text = entry;
    return text.substr(0, text.find('='));
}

} // namespace

std::vector<char *> proc_extend_environment(char *const *base, char *const *extension)
{
    std::vector<char *> merged;
    for (; base != nullptr && *base != nullptr; base++)
        merged.push_back(*base);
    for (; *extension != nullptr; extension++) {
        const auto same = std::find_if(merged.begin(), merged.end(), [extension](char *entry) {
            return name_of(entry) == name_of(*extension);
        });
        if (same != merged.end())
            *same = *extension;
        else
            merged.push_back(*extension);
    }
    merged.push_back(nullptr);
    return merged;
}

ProcPlan proc_plan(const char *tool, uint32_t flags, va_list arguments)
{
    ProcPlan plan;
    if ((flags & PROC_ARGV) != 0) {
        plan.argv = va_arg(arguments, char *const *);
    } else {
        // exec's argument strings are not const for historical reasons alone.
        plan.arguments.push_back(const_cast<char *>(tool));
        for (uint32_t i = 0; i < (flags & PROC_NARGS); i++)
            plan.arguments.push_back(const_cast<char *>(va_arg(arguments, const char *)));
        plan.arguments.push_back(nullptr);
        plan.argv = plan.arguments.data();
    }
    if ((flags & PROC_ENV) != 0) {
        if (char *const *extension = va_arg(arguments, char *const *); extension != nullptr) {
            plan.environment = proc_extend_environment(platform_environment(), extension);
            plan.envp = plan.environment.data();
        }
    }
    if ((flags & PROC_STDIN) != 0)
        plan.stdin_fd = va_arg(arguments, int);
    if ((flags & PROC_STDOUT) != 0)
        plan.stdout_fd = va_arg(arguments, int);
    if ((flags & PROC_STDERR) != 0)
        plan.stderr_fd = va_arg(arguments, int);
    return plan;
}
