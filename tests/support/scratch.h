// Private places for tests: directories, a home, what a descriptor was sent.
#pragma once

#include "platform/unique_fd.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

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
    // Makes a file and the directories it lies in.
    void write(const std::string &name, const std::string &text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
    }
    std::string read(const std::string &name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

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

// Runs `body` in a new process of an ordinary user whose home is `home`, so that what a process
// keeps for its life (its home, its settings) is new each time. The exit status that `body`
// returns.
inline int in_home(const ScratchDirectory &home, const std::function<int()> &body)
{
    constexpr unsigned nobody = 65534;
    const bool root = geteuid() == 0;
    if (root && chown(home.path().c_str(), nobody, nobody) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        if (root && (setgid(nobody) != 0 || setuid(nobody) != 0))
            _exit(126);
        setenv("HOME", home.path().c_str(), 1);
        setenv("TARV_SUPPORT_DIR", home.path("support").c_str(), 1);
        _exit(body());
    }
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
