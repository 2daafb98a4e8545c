// A guest's desktop without a guest: a virtual screen with Debian's real clipboard agents
// (spice-vdagentd, spice-vdagent), whose port is a socket that somebody listens on, and xclip as
// the user's program. Everything ends what it started.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

// Programs that only log into `directory`, and end with the thread that started them.
class DesktopPrograms
{
public:
    explicit DesktopPrograms(std::string directory) : m_directory(std::move(directory)) {}
    pid_t spawn(const std::vector<std::string> &arguments, const std::string &display = "",
                const std::string &in = "/dev/null", const std::string &out = "") const;
    // Ends a child, if there is one.
    static void end(pid_t pid, int signal);
    std::string file(const char *name) const { return m_directory + "/" + name; }
    std::string log() const;

private:
    std::string m_directory;
};

// A user's program that copies and pastes on an X screen.
class Clipper
{
public:
    // Keeps its files in `directory`. `idle` is run while waiting.
    Clipper(std::string directory, std::string display, std::function<void()> idle);
    ~Clipper();
    Clipper(const Clipper &) = delete;
    Clipper &operator=(const Clipper &) = delete;

    // Copies bytes as `target` (UTF8_STRING, image/png) and keeps them to give.
    void copy(const std::string &target, const std::string &bytes);
    // What it gets when it pastes; nothing when it gets an error.
    std::optional<std::string> paste(const std::string &target);

private:
    DesktopPrograms m_programs;
    std::string m_display;
    std::function<void()> m_idle;
    pid_t m_copier = -1;
};

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

    // The user's program; once it was started.
    Clipper &clipper() { return *m_clipper; }
    std::string log() const { return m_programs.log(); }

private:
    DesktopPrograms m_programs;
    std::string m_directory, m_port, m_display;
    std::function<void()> m_idle;
    std::unique_ptr<Clipper> m_clipper;
    pid_t m_screen = -1, m_daemon = -1, m_session = -1;
};
