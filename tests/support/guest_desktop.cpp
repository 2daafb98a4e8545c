#include "tests/support/guest_desktop.h"

#include "platform/process.h"
#include "platform/unique_fd.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

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

pid_t DesktopPrograms::spawn(const std::vector<std::string> &arguments, const std::string &display,
                             const std::string &in, const std::string &out) const
{
    std::vector<std::string> words = arguments;
    std::vector<std::string> variables = {"PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8",
                                          "HOME=" + m_directory, "DISPLAY=" + display};
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

void DesktopPrograms::end(pid_t pid, int signal)
{
    if (pid > 0 && kill(pid, signal) == 0)
        waitpid(pid, nullptr, 0);
}

std::string DesktopPrograms::log() const
{
    return text_of(file("log"));
}

Clipper::Clipper(std::string directory, std::string display, std::function<void()> idle)
    : m_programs(std::move(directory)), m_display(std::move(display)), m_idle(std::move(idle))
{
}

Clipper::~Clipper()
{
    DesktopPrograms::end(m_copier, SIGKILL);
}

void Clipper::copy(const std::string &target, const std::string &bytes)
{
    DesktopPrograms::end(m_copier, SIGTERM);
    std::ofstream(m_programs.file("copied"), std::ios::binary) << bytes;
    m_copier = m_programs.spawn({CLIP, "-quiet", "-selection", "clipboard", "-t", target, "-i"},
                                m_display, m_programs.file("copied"));
}

std::optional<std::string> Clipper::paste(const std::string &target)
{
    const pid_t pid = m_programs.spawn({CLIP, "-selection", "clipboard", "-t", target, "-o"},
                                       m_display, "/dev/null", m_programs.file("pasted"));
    int status = -1;
    const bool ended = wait_until([&] {
        m_idle();
        return waitpid(pid, &status, WNOHANG) == pid;
    });
    if (!ended)
        DesktopPrograms::end(pid, SIGKILL);
    return ended && status == 0 ? std::optional(text_of(m_programs.file("pasted"))) : std::nullopt;
}

GuestDesktop::GuestDesktop(std::string directory, std::string port, std::function<void()> idle)
    : m_programs(directory),
      m_directory(std::move(directory)),
      m_port(std::move(port)),
      m_idle(std::move(idle))
{
}

GuestDesktop::~GuestDesktop()
{
    m_clipper.reset();
    for (const pid_t pid : {m_session, m_daemon, m_screen})
        DesktopPrograms::end(pid, SIGKILL);
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
    const std::string number = m_programs.file("display");
    m_screen = m_programs.spawn(
        {SCREEN, "-displayfd", "1", "-screen", "0", "320x240x24", "-nolisten", "tcp"}, "",
        "/dev/null", number);
    if (!wait_until([&] { return text_of(number).ends_with('\n'); }))
        return false;
    m_display = ":" + text_of(number);
    m_display.pop_back();
    m_clipper = std::make_unique<Clipper>(m_directory, m_display, m_idle);
    const std::string session = m_programs.file("session"), uinput = m_programs.file("uinput");
    const std::ofstream no_pointer(uinput);
    m_daemon = m_programs.spawn(
        {DAEMON, "-x", "-X", "-f", "-d", "-s", m_port, "-S", session, "-u", uinput});
    if (!wait_until([&] { return access(session.c_str(), F_OK) == 0; }))
        return false;
    startSession();
    return wait_until([&] {
        m_idle();
        return log().find("opening vdagent virtio channel") != std::string::npos;
    });
}

void GuestDesktop::startSession()
{
    m_session = m_programs.spawn(
        {SESSION, "-x", "-d", "-s", m_port, "-S", m_programs.file("session")}, m_display);
}

void GuestDesktop::endSession()
{
    DesktopPrograms::end(std::exchange(m_session, -1), SIGTERM);
}
