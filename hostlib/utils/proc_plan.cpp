#include "hostlib/utils/proc_plan.h"

#include "hostlib/utils/proc.h"
#include "platform/process.h"

#include <algorithm>
#include <string_view>

namespace {

// What stands before the first "=", or all of an entry that has none.
std::string_view name_of(std::string_view text)
{
    return text.substr(0, text.find('='));
}

} // namespace

std::vector<std::string> proc_extend_environment(char *const *base, char *const *extension)
{
    std::vector<std::string> merged;
    for (; base != nullptr && *base != nullptr; base++)
        merged.emplace_back(*base);
    for (; *extension != nullptr; extension++) {
        const auto same =
            std::find_if(merged.begin(), merged.end(), [extension](const std::string &entry) {
                return name_of(entry) == name_of(*extension);
            });
        if (same != merged.end())
            *same = *extension;
        else
            merged.emplace_back(*extension);
    }
    return merged;
}

ChildLaunch proc_plan(const char *tool, uint32_t flags, va_list arguments)
{
    ChildLaunch launch{.program = tool};
    if ((flags & PROC_ARGV) != 0) {
        for (char *const *text = va_arg(arguments, char *const *); *text != nullptr; text++)
            launch.arguments.emplace_back(*text);
    } else {
        launch.arguments.emplace_back(tool);
        for (uint32_t i = 0; i < (flags & PROC_NARGS); i++)
            launch.arguments.emplace_back(va_arg(arguments, const char *));
    }
    if ((flags & PROC_ENV) != 0)
        if (char *const *extension = va_arg(arguments, char *const *); extension != nullptr)
            launch.environment = proc_extend_environment(platform_environment(), extension);
    if ((flags & PROC_STDIN) != 0)
        launch.in = va_arg(arguments, int);
    if ((flags & PROC_STDOUT) != 0)
        launch.out = va_arg(arguments, int);
    if ((flags & PROC_STDERR) != 0)
        launch.err = va_arg(arguments, int);
    return launch;
}
