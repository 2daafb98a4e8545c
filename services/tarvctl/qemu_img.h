// Runs the image tool.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Runs it with these arguments and waits. `progress` is told how far it is, 0 to 1, when "-p" is
// among them. It ends with this process, and when the command is cancelled. Fails with what it
// said; a full disk is ExitStatus::space.
void run_qemu_img(const std::vector<std::string> &arguments,
                  const std::function<void(double)> &progress = {});
// The tool's path: setting qemu_img_executable, else the usual one.
std::string qemu_img_program();
