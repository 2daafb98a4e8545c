// Runs another program and waits for it.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

inline constexpr int TOOL_TIMED_OUT = -1;

struct ToolRun
{
    int status = 0;       // exit status, 128 + signal, or TOOL_TIMED_OUT
    std::string out, err; // the last 16 KiB of each
};

// Runs the program at a path, with English messages and nothing else in its environment. It ends
// with this process, when the command is cancelled (which throws), and after `patience` unless that
// is 0. `watch` is told the output so far, again and again. Fails when it can't be started.
ToolRun run_tool(const std::string &program, const std::vector<std::string> &arguments,
                 std::chrono::milliseconds patience = {},
                 const std::function<void(const std::string &)> &watch = {});
