#include "services/vlaunchd/spawn.h"

#include <cerrno>
#include <csignal>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int make_pipe(UniqueFd &reader, UniqueFd &writer)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    reader.reset(ends[0]);
    writer.reset(ends[1]);
    return 0;
}

ssize_t read_resumed(int fd, void *buffer, size_t size)
{
    ssize_t got;
    do
        got = read(fd, buffer, size);
    while (got < 0 && errno == EINTR);
    return got;
}

// The texts as an argument or environment vector. They must outlive it.
std::vector<char *> vector_of(const std::vector<std::string> &texts)
{
    std::vector<char *> result;
    for (const std::string &text : texts)
        result.push_back(const_cast<char *>(text.c_str()));
    result.push_back(nullptr);
    return result;
}

// What runs in the new process. Only functions that are safe after fork.
struct Child
{
    const char *program;
    char *const *argv;
    char *const *envp;
    int gate, result, input, output;

    [[noreturn]] void run() const
    {
        char byte;
        setsid();
        reset_signals();
        if (dup2(input, 0) >= 0 && dup2(output, 1) >= 0 && dup2(output, 2) >= 0 &&
            chdir("/") == 0) {
            if (read_resumed(gate, &byte, 1) != 1)
                _exit(0);
            execve(program, argv, envp);
        }
        const int error = errno;
        _exit(write(result, &error, sizeof error) == sizeof error ? 127 : 126);
    }

private:
    static void reset_signals()
    {
        for (int number : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD})
            signal(number, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
    }
};

} // namespace

int HeldProcess::prepare(const JobRequest &request, int output)
{
    std::vector<std::string> arguments{request.program}, environment;
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    for (const auto &[name, value] : request.environment)
        environment.push_back(name + "=" + value);
    const auto argv = vector_of(arguments), envp = vector_of(environment);

    UniqueFd gate, result, input(open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!input || make_pipe(gate, m_gate) != 0 || make_pipe(m_result, result) != 0)
        return -1;
    const Child child{request.program.c_str(),
                      argv.data(),
                      envp.data(),
                      gate.get(),
                      result.get(),
                      input.get(),
                      output};
    m_pid = fork();
    if (m_pid == 0) {
        m_gate.reset(); // else its own end would keep the gate from ever closing
        child.run();
    }
    return m_pid > 0 ? 0 : -1;
}

int HeldProcess::release()
{
    const char byte = 1;
    int error = 0;
    ssize_t put;
    do
        put = write(m_gate.get(), &byte, 1);
    while (put < 0 && errno == EINTR);
    m_gate.reset();
    const ssize_t got = read_resumed(m_result.get(), &error, sizeof error);
    if (got == 0 && put == 1) {
        m_pid = -1;
        return 0;
    }
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
        ;
    m_pid = -1;
    errno = got == sizeof error ? error : ECHILD;
    return -1;
}

HeldProcess::~HeldProcess()
{
    if (m_pid <= 0)
        return;
    m_gate.reset();
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
        ;
}
