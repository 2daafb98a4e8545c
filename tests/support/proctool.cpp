// Plays external tools in process tests: its first argument says how to behave. No mode outlives
// two minutes.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void say(int fd, const std::string &text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count <= 0)
            _exit(99);
        done += size_t(count);
    }
}

// Until whoever holds the other end of standard input lets go of it.
void wait_for_end_of_input()
{
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0)
        ;
}

// Writes so much to each stream, in turns, without ever ending a line.
int flood(size_t bytes)
{
    const std::string block(65536, 'x');
    for (size_t sent = 0; sent < bytes; sent += block.size()) {
        say(STDOUT_FILENO, block);
        say(STDERR_FILENO, block);
    }
    return 0;
}

int copy_input()
{
    char block[65536];
    for (ssize_t count; (count = read(STDIN_FILENO, block, sizeof block)) > 0;)
        say(STDOUT_FILENO, {block, size_t(count)});
    return 0;
}

int show_descriptors()
{
    struct stat status;
    for (int fd = 0; fd < 1024; fd++) {
        if (fstat(fd, &status) == 0)
            say(STDOUT_FILENO, std::to_string(fd) + "\n");
    }
    return 0;
}

int show_environment(char **names)
{
    for (; *names != nullptr; names++) {
        const char *value = std::getenv(*names);
        say(STDOUT_FILENO,
            std::string(*names) + "=" + (value != nullptr ? value : "(unset)") + "\n");
    }
    return 0;
}

// Exits at once; a child of its own keeps the streams until standard input ends.
int leave_grandchild()
{
    const pid_t tool = getpid();
    if (fork() != 0)
        return 0;
    alarm(120);
    while (getppid() == tool)
        usleep(1000);
    say(STDOUT_FILENO, "orphan\n");
    wait_for_end_of_input();
    say(STDOUT_FILENO, "late\n");
    return 0;
}

// Lives on without streams until standard input ends.
int close_output()
{
    say(STDOUT_FILENO, "closing\n");
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    wait_for_end_of_input();
    return 7;
}

// Ends by a signal, without leaving a memory image.
int die(int number)
{
    const struct rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(number, SIG_DFL);
    return kill(getpid(), number);
}

// Prints its pid and lives until a signal ends it.
int hang()
{
    say(STDOUT_FILENO, std::to_string(getpid()) + "\n");
    for (;;)
        pause();
}

// The installer's tool, asked about a package.
int package_info(const std::string &package)
{
    if (package == "unknown") {
        say(STDERR_FILENO, "No receipt for '" + package + "' found\n");
        return 1;
    }
    say(STDOUT_FILENO, "package-id: " + package + "\nversion: 10.2.3 \t\nlocation: /\n");
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2)
        return 0;
    alarm(120);
    const std::string mode = argv[1];
    const char *value = argc > 2 ? argv[2] : "";
    if (mode == "args") {
        for (char **argument = argv; *argument != nullptr; argument++)
            say(STDOUT_FILENO, std::string(*argument) + "\n");
        return 0;
    }
    if (mode == "env")
        return show_environment(argv + 2);
    if (mode == "cwd") {
        char path[4096];
        say(STDOUT_FILENO, getcwd(path, sizeof path) != nullptr ? path : "?");
        return 0;
    }
    if (mode == "exit")
        return std::atoi(value);
    if (mode == "kill")
        return die(std::atoi(value));
    if (mode == "flood")
        return flood(std::strtoul(value, nullptr, 10));
    if (mode == "out")
        return say(STDOUT_FILENO, value), 0;
    if (mode == "err")
        return say(STDERR_FILENO, value), 0;
    if (mode == "both")
        return say(STDOUT_FILENO, "out\n"), say(STDERR_FILENO, "err\n"), 0;
    if (mode == "cat")
        return copy_input();
    if (mode == "fds")
        return show_descriptors();
    if (mode == "close-output")
        return close_output();
    if (mode == "grandchild")
        return leave_grandchild();
    if (mode == "hang")
        return hang();
    if (mode == "ignore-term")
        return std::signal(SIGTERM, SIG_IGN), hang();
    if (mode == "--pkg-info")
        return package_info(value);
    say(STDERR_FILENO, "proctool: unknown mode " + mode + "\n");
    return 97;
}
