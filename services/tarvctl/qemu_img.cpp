#include "services/tarvctl/qemu_img.h"

#include "services/settings.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/tool.h"

#include <cstdlib>
#include <string_view>

namespace {

// The last "(12.34/100%)" of the output.
void tell_progress(const std::string &output, const std::function<void(double)> &progress)
{
    const size_t open = output.rfind('('), end = output.find("/100%)", open);
    if (progress && open != std::string::npos && end != std::string::npos)
        progress(strtod(output.c_str() + open + 1, nullptr) / 100);
}

std::string last_line(std::string text)
{
    while (!text.empty() && static_cast<unsigned char>(text.back()) <= ' ')
        text.pop_back();
    const size_t start = text.find_last_of("\r\n");
    text = start == std::string::npos ? text : text.substr(start + 1);
    constexpr std::string_view prefix = "qemu-img: ";
    return text.starts_with(prefix) ? text.substr(prefix.size()) : text;
}

} // namespace

std::string qemu_img_program()
{
    return path_setting("qemu_img_executable", "/usr/bin/qemu-img");
}

void run_qemu_img(const std::vector<std::string> &arguments,
                  const std::function<void(double)> &progress)
{
    const std::string program = qemu_img_program();
    const ToolRun run = run_tool(program, arguments, {}, [&](const std::string &output) {
        tell_progress(output, progress);
    });
    if (run.status == 0)
        return;
    std::string reason = last_line(run.err);
    if (reason.empty())
        reason = "ended with status " + std::to_string(run.status);
    throw Failure(reason.find("No space left") != std::string::npos ||
                          reason.find("quota exceeded") != std::string::npos
                      ? ExitStatus::space
                      : ExitStatus::failed,
                  program + ": " + reason);
}
