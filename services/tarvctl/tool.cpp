#include "services/tarvctl/tool.h"

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/cancel.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t kept_output = 16 * 1024;

struct Pipe
{
    UniqueFd reader, writer;
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw system_failure("pipe", errno);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
};

// The running tool; ended and reaped when dropped early.
class Child
{
public:
    Child(const std::string &program, const std::vector<std::string> &arguments, int out, int err)
    {
        std::vector<std::string> texts{program};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        std::vector<char *> argv;
        for (std::string &text : texts)
            argv.push_back(text.data());
        argv.push_back(nullptr);
        // Its messages are searched for their meaning.
        std::string locale = "LC_ALL=C";
        char *envp[] = {locale.data(), nullptr};
        platform_launch launch{.path = program.c_str(), .argv = argv.data(), .envp = envp};
        launch.stdout_fd = out;
        launch.stderr_fd = err;
        m_pid = platform_spawn_bound(launch, nullptr, 0);
        if (m_pid < 0)
            throw system_failure(program, errno);
    }
    ~Child()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            wait();
        }
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    int wait()
    {
        int status = 0;
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR)
            ;
        m_pid = -1;
        return status;
    }

private:
    pid_t m_pid = -1;
};

// Appends what is there to be read. False at the end.
bool take(UniqueFd &fd, std::string &text)
{
    std::array<char, 4096> bytes;
    const ssize_t got = read(fd.get(), bytes.data(), bytes.size());
    if (got > 0)
        text.append(bytes.data(), static_cast<size_t>(got));
    if (text.size() > kept_output)
        text.erase(0, text.size() - kept_output);
    return got > 0 || (got < 0 && (errno == EINTR || errno == EAGAIN));
}

} // namespace

ToolRun run_tool(const std::string &program, const std::vector<std::string> &arguments,
                 std::chrono::milliseconds patience,
                 const std::function<void(const std::string &)> &watch)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + patience;
    Pipe out, err;
    Child child(program, arguments, out.writer.get(), err.writer.get());
    out.writer.reset();
    err.writer.reset();
    ToolRun run;
    while (out.reader || err.reader) {
        pollfd waits[] = {{out.reader.get(), POLLIN, 0}, {err.reader.get(), POLLIN, 0}};
        poll(waits, 2, 100);
        check_cancelled();
        if (patience.count() > 0 && Clock::now() > deadline) {
            run.status = TOOL_TIMED_OUT;
            return run;
        }
        if (waits[0].revents && !take(out.reader, run.out))
            out.reader.reset();
        if (waits[1].revents && !take(err.reader, run.err))
            err.reader.reset();
        if (watch)
            watch(run.out);
    }
    const int status = child.wait();
    check_cancelled();
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}
