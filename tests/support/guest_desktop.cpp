#include "tests/support/guest_desktop.h"

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "tests/support/scratch.h"

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr const char *SCREEN = "/usr/bin/Xvfb";
constexpr const char *DAEMON = "/usr/sbin/spice-vdagentd";
constexpr const char *SESSION = "/usr/bin/spice-vdagent";
constexpr const char *CLIP = "/usr/bin/xclip";

std::string text_of(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

bool wait_until(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

} // namespace

GuestDesktop::GuestDesktop(std::string directory, std::string port, std::function<void()> idle)
    : m_directory(std::move(directory)), m_port(std::move(port)), m_idle(std::move(idle))
{
}

GuestDesktop::~GuestDesktop()
{
    for (const pid_t pid : {m_copier, m_session, m_daemon, m_screen})
        end(pid, SIGKILL);
}

std::string GuestDesktop::missing()
{
    for (const char *program : {SCREEN, DAEMON, SESSION, CLIP})
        if (access(program, X_OK) != 0)
            return program;
    return "";
}

bool GuestDesktop::start()
{
    const std::string number = file("display");
    m_screen = spawn({SCREEN, "-displayfd", "1", "-screen", "0", "320x240x24", "-nolisten", "tcp"},
                     "/dev/null", number);
    if (!wait_until([&] { return text_of(number).ends_with('\n'); }))
        return false;
    m_display = ":" + text_of(number);
    m_display.pop_back();
    write_file(file("uinput"), "");
    m_daemon = spawn({DAEMON, "-x", "-X", "-f", "-d", "-s", m_port, "-S", file("session"), "-u",
                      file("uinput")});
    if (!wait_until([&] { return access(file("session").c_str(), F_OK) == 0; }))
        return false;
    startSession();
    return wait_until([&] {
        m_idle();
        return log().find("opening vdagent virtio channel") != std::string::npos;
    });
}

void GuestDesktop::startSession()
{
    m_session = spawn({SESSION, "-x", "-d", "-s", m_port, "-S", file("session")});
}

void GuestDesktop::endSession()
{
    end(m_session, SIGTERM);
    m_session = -1;
}

void GuestDesktop::copy(const std::string &target, const std::string &bytes)
{
    end(m_copier, SIGTERM);
    write_file(file("copied"), bytes);
    m_copier =
        spawn({CLIP, "-quiet", "-selection", "clipboard", "-t", target, "-i"}, file("copied"));
}

std::optional<std::string> GuestDesktop::paste(const std::string &target)
{
    const pid_t pid =
        spawn({CLIP, "-selection", "clipboard", "-t", target, "-o"}, "/dev/null", file("pasted"));
    int status = -1;
    const bool ended = wait_until([&] {
        m_idle();
        return waitpid(pid, &status, WNOHANG) == pid;
    });
    if (!ended)
        end(pid, SIGKILL);
    return ended && status == 0 ? std::optional(text_of(file("pasted"))) : std::nullopt;
}

std::string GuestDesktop::log() const
{
    return text_of(file("log"));
}

pid_t GuestDesktop::spawn(const std::vector<std::string> &arguments, const std::string &in,
                          const std::string &out)
{
    std::vector<std::string> words = arguments;
    std::vector<std::string> variables = {"PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8",
                                          "HOME=" + m_directory, "DISPLAY=" + m_display};
    std::vector<char *> argv, envp;
    for (std::string &word : words)
        argv.push_back(word.data());
    for (std::string &variable : variables)
        envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    constexpr int write_flags = O_WRONLY | O_CREAT | O_CLOEXEC;
    const UniqueFd input(open(in.c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd errors(open(file("log").c_str(), write_flags | O_APPEND, 0600));
    const UniqueFd output(out.empty() ? -1 : open(out.c_str(), write_flags | O_TRUNC, 0600));
    return platform_spawn_bound({argv[0], argv.data(), envp.data(), AT_FDCWD, input.get(),
                                 out.empty() ? errors.get() : output.get(), errors.get()},
                                nullptr, 0);
}

// Ends a child; its status.
int GuestDesktop::end(pid_t pid, int signal)
{
    int status = 0;
    if (pid > 0 && kill(pid, signal) == 0)
        waitpid(pid, &status, 0);
    return status;
}
