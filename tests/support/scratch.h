// Private places for tests: directories, a home, child processes, what a descriptor was sent.
#pragma once

#include "platform/unique_fd.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

// Makes a file and the directories it lies in.
inline void write_file(const std::filesystem::path &path, const std::string &text)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_file(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The two ends of a connection: of a pipe (`near` is read), or of a pair of sockets.
struct Ends
{
    Ends() { own(pipe2(m_fds, O_CLOEXEC)); }
    explicit Ends(int socket_type) { own(socketpair(AF_UNIX, socket_type, 0, m_fds)); }
    UniqueFd near, far;

private:
    void own(int result)
    {
        near.reset(result == 0 ? m_fds[0] : -1);
        far.reset(result == 0 ? m_fds[1] : -1);
    }
    int m_fds[2];
};

// A new directory that goes with all it holds.
class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        m_path = std::filesystem::temp_directory_path() / "tarv-test-XXXXXX";
        mkdtemp(m_path.data());
    }
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchDirectory(const ScratchDirectory &) = delete;
    ScratchDirectory &operator=(const ScratchDirectory &) = delete;

    const std::string &path() const { return m_path; }
    std::string path(const std::string &name) const { return m_path + "/" + name; }
    void write(const std::string &name, const std::string &text) const
    {
        write_file(path(name), text);
    }
    std::string read(const std::string &name) const { return read_file(path(name)); }

private:
    std::string m_path;
};

// Gathers what is written to a descriptor (2: also what the host library logs) while it lives.
class Capture
{
public:
    explicit Capture(int fd) : m_fd(fd), m_before(fcntl(fd, F_DUPFD_CLOEXEC, 3))
    {
        const UniqueFd file(
            open(m_directory.path("log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        dup2(file.get(), fd);
    }
    ~Capture() { dup2(m_before.get(), m_fd); }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    std::string text() const { return m_directory.read("log"); }

private:
    ScratchDirectory m_directory;
    int m_fd;
    UniqueFd m_before;
};

// Runs `work` in a child process; the status it returns or was ended by, as a shell has it.
inline pid_t run_child(const std::function<int()> &work)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(work());
    return pid;
}

inline int wait_child(pid_t pid)
{
    int status = -1;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body` in a new process of an ordinary user whose home is `home`, so that what a process
// keeps for its life (its home, its settings) is new each time. The exit status that `body`
// returns.
inline int in_home(const ScratchDirectory &home, const std::function<int()> &body)
{
    constexpr unsigned nobody = 65534;
    const bool root = geteuid() == 0;
    if (root && chown(home.path().c_str(), nobody, nobody) != 0)
        return -1;
    return wait_child(run_child([&] {
        if (root && (setgid(nobody) != 0 || setuid(nobody) != 0))
            return 126;
        setenv("HOME", home.path().c_str(), 1);
        setenv("TARV_SUPPORT_DIR", home.path("support").c_str(), 1);
        return body();
    }));
}
