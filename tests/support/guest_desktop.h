// A guest's desktop without a guest: a virtual screen with Debian's real clipboard agents
// (spice-vdagentd, spice-vdagent), whose port is a socket that somebody listens on, and xclip as
// the user's program. Ends all that it started.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

class GuestDesktop
{
public:
    // Keeps its files in `directory`; `port` is the socket's path. `idle` is run while waiting.
    GuestDesktop(
        std::string directory, std::string port, std::function<void()> idle = [] {});
    ~GuestDesktop();
    GuestDesktop(const GuestDesktop &) = delete;
    GuestDesktop &operator=(const GuestDesktop &) = delete;

    // The first of the programs that is not there, or "".
    static std::string missing();
    // Starts the agents; the port is opened when both are there. False with the log on standard
    // error.
    bool start();
    // The session's agent ends: the port is closed.
    void endSession();
    void startSession();

    // Has a program copy bytes as `target` (UTF8_STRING, image/png), and keep them to give.
    void copy(const std::string &target, const std::string &bytes);
    // What a program that pastes gets; nothing when it gets an error.
    std::optional<std::string> paste(const std::string &target);

    std::string log() const;

private:
    pid_t spawn(const std::vector<std::string> &arguments, const std::string &in = "/dev/null",
                const std::string &out = "");
    int end(pid_t pid, int signal);
    std::string file(const char *name) const { return m_directory + "/" + name; }

    std::string m_directory, m_port, m_display;
    std::function<void()> m_idle;
    pid_t m_screen = -1, m_daemon = -1, m_session = -1, m_copier = -1;
};
