#include "services/engine/machine_types.h"

#include "hostlib/utils/utils.h"
#include "platform/child.h"
#include "platform/file.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sstream>
#include <unistd.h>

namespace {

constexpr std::string_view PREFIX = "pc-q35-";
constexpr std::chrono::seconds HELP_PATIENCE{10};
constexpr size_t NAME_LENGTH_MAX = 64, HELP_MAX = 1 << 20;

// All that the child prints, or why there is no more of it.
ServiceFailure read_until(int fd, std::chrono::steady_clock::time_point deadline,
                          const std::string &program, std::string *text)
{
    std::array<char, 4096> chunk;
    while (text->size() < HELP_MAX) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd output{fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&output, 1, static_cast<int>(left.count())) == 0)
            return ServiceFailure::of(program + " -machine help", ETIMEDOUT);
        const ssize_t length = read(fd, chunk.data(), chunk.size());
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return length == 0 ? ServiceFailure() : ServiceFailure::of(program);
        text->append(chunk.data(), static_cast<size_t>(length));
    }
    return {};
}

} // namespace

bool machine_type_is_name(const std::string &text)
{
    return !text.empty() && text.size() <= NAME_LENGTH_MAX &&
           std::all_of(text.begin(), text.end(), [](unsigned char byte) {
               return std::isalnum(byte) || byte == '.' || byte == '-' || byte == '_';
           });
}

std::vector<std::string> machine_types_in(const std::string &help)
{
    std::vector<std::string> types;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
        if (std::string name = line.substr(0, line.find(' '));
            name.starts_with(PREFIX) && machine_type_is_name(name))
            types.push_back(std::move(name));
    const auto version = [](const std::string &type) { return type.c_str() + PREFIX.size(); };
    std::sort(types.begin(), types.end(), [&](const std::string &one, const std::string &other) {
        return vercmp(version(one), version(other)) > 0;
    });
    return types;
}

ServiceFailure machine_types_of(const std::string &qemu, std::vector<std::string> *types)
{
    UniqueFd output, far;
    if (platform_pipe(&output, &far) != 0)
        return ServiceFailure::of("pipe");
    Child child; // which is killed when this function is left early
    if (child.start({.program = qemu,
                     .arguments = {qemu, "-machine", "help"},
                     .environment = std::vector<std::string>{"LC_ALL=C"},
                     .out = far.get()}) != 0)
        return ServiceFailure::of(qemu);
    far.reset();
    std::string help;
    if (auto failure =
            read_until(output.get(), std::chrono::steady_clock::now() + HELP_PATIENCE, qemu, &help))
        return failure;
    int status = 0;
    if (child.wait(&status) != 0)
        return ServiceFailure::of(qemu);
    *types = machine_types_in(help);
    if (status != 0 || types->empty())
        return {0, qemu + " -machine help: offers no machine of the type pc-q35 (exit status " +
                       std::to_string(child_exit_status(status)) + ")"};
    return {};
}
