#include "services/tarvctl/tool.h"

#include "platform/child.h"
#include "platform/file.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/cancel.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace {

constexpr size_t KEPT_OUTPUT = 16 * 1024;

ChildLaunch launch_of(const std::string &program, const std::vector<std::string> &arguments)
{
    // Its messages are searched for their meaning.
    ChildLaunch launch{.program = program, .arguments = {program}};
    launch.environment = std::vector<std::string>{"LC_ALL=C"};
    launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
    launch.life = ChildLife::bound;
    return launch;
}

// Appends what is there to be read. False at the end.
bool take(UniqueFd &fd, std::string &text)
{
    std::array<char, 4096> bytes;
    const ssize_t got = read(fd.get(), bytes.data(), bytes.size());
    if (got > 0)
        text.append(bytes.data(), static_cast<size_t>(got));
    if (text.size() > KEPT_OUTPUT)
        text.erase(0, text.size() - KEPT_OUTPUT);
    return got > 0 || (got < 0 && (errno == EINTR || errno == EAGAIN));
}

} // namespace

ToolRun run_tool(const std::string &program, const std::vector<std::string> &arguments,
                 std::chrono::milliseconds patience,
                 const std::function<void(const std::string &)> &watch)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + patience;
    UniqueFd out, err, out_writer, err_writer;
    if (platform_pipe(&out, &out_writer) != 0 || platform_pipe(&err, &err_writer) != 0)
        throw system_failure("pipe", errno);
    ChildLaunch launch = launch_of(program, arguments);
    launch.out = out_writer.get();
    launch.err = err_writer.get();
    Child child; // which is killed when this function is left early
    if (child.start(launch) != 0)
        throw system_failure(program, errno);
    out_writer.reset();
    err_writer.reset();
    ToolRun run;
    while (out || err) {
        pollfd waits[] = {{out.get(), POLLIN, 0}, {err.get(), POLLIN, 0}};
        poll(waits, 2, 100);
        check_cancelled();
        if (patience.count() > 0 && Clock::now() > deadline) {
            run.status = TOOL_TIMED_OUT;
            return run;
        }
        if (waits[0].revents && !take(out, run.out))
            out.reset();
        if (waits[1].revents && !take(err, run.err))
            err.reset();
        if (watch)
            watch(run.out);
    }
    int status = 0;
    if (child.wait(&status) != 0)
        throw system_failure(program, errno);
    check_cancelled();
    run.status = child_exit_status(status);
    return run;
}
