#include "services/tarvctl/qemu_img.h"

#include "hostlib/config/config.h"
#include "platform/process.h"
#include "platform/unique_fd.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/cancel.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

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
    const char *setting =
        config_find("qemu_img_executable") ? config_get_path("qemu_img_executable") : nullptr;
    return setting ? setting : "/usr/bin/qemu-img";
}

void run_qemu_img(const std::vector<std::string> &arguments,
                  const std::function<void(double)> &progress)
{
    Pipe out, err;
    const std::string program = qemu_img_program();
    Child child(program, arguments, out.writer.get(), err.writer.get());
    out.writer.reset();
    err.writer.reset();
    std::string said, complaints;
    while (out.reader || err.reader) {
        pollfd waits[] = {{out.reader.get(), POLLIN, 0}, {err.reader.get(), POLLIN, 0}};
        poll(waits, 2, 100);
        check_cancelled();
        if (waits[0].revents && !take(out.reader, said))
            out.reader.reset();
        if (waits[1].revents && !take(err.reader, complaints))
            err.reader.reset();
        tell_progress(said, progress);
    }
    const int status = child.wait();
    check_cancelled();
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return;
    std::string reason = last_line(complaints);
    if (reason.empty())
        reason = "ended with status " + std::to_string(status);
    throw Failure(reason.find("No space left") != std::string::npos ||
                          reason.find("quota exceeded") != std::string::npos
                      ? ExitStatus::space
                      : ExitStatus::failed,
                  program + ": " + reason);
}
