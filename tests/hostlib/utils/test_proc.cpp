#include "hostlib/utils/proc.h"

#include "tests/support/scratch.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

constexpr const char *tool = TARV_PROCTOOL;

void keep_line(void *lines, const char *line, size_t length)
{
    static_cast<std::vector<std::string> *>(lines)->emplace_back(line, length);
}

size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return size_t(std::distance(begin(all), end(all)));
}

// Counts what arrives on each stream.
ssize_t count_bytes(void *context, int stdout_fd, int stderr_fd)
{
    static std::array<char, 1 << 16> buffer;
    const ssize_t count =
        read(stdout_fd == -1 ? stderr_fd : stdout_fd, buffer.data(), buffer.size());
    static_cast<size_t *>(context)[stdout_fd == -1 ? 1 : 0] += size_t(std::max<ssize_t>(count, 0));
    return count;
}

TEST(proc, passes_arguments_in_their_order)
{
    std::vector<std::string> lines;
    EXPECT_EQ(proc_getln(tool, keep_line, &lines, 3, "args", "", "a b"), 0);
    EXPECT_THAT(lines, ElementsAre(std::string(tool) + "\n", "args\n", "\n", "a b\n"));

    // Vector, environment, standard input, standard output, standard error: the order of the flags.
    const ScratchDirectory directory;
    directory.write("in", "input");
    const UniqueFd in(open(directory.path("in").c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd out(open(directory.path("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    std::string name = "named", mode = "cat", entry = "A=1";
    char *const argv[] = {name.data(), mode.data(), nullptr};
    char *const extension[] = {entry.data(), nullptr};
    EXPECT_EQ(proc_exec(tool, nullptr, nullptr,
                        PROC_ARGV | PROC_ENV | PROC_STDIN | PROC_STDOUT | PROC_STDERR, argv,
                        extension, in.get(), out.get(), 2),
              0);
    EXPECT_EQ(directory.read("out"), "input");
}

TEST(proc, extends_the_environment_of_the_child_alone)
{
    setenv("PROC_OLD", "old", 1);
    std::vector<std::string> lines;
    std::string entries[] = {"PROC_OLD=new", "PROC_NEW=1", "PROC_NEW=2", "PROC_NAMES=longer"};
    char *const extension[] = {entries[0].data(), entries[1].data(), entries[2].data(),
                               entries[3].data(), nullptr};
    EXPECT_EQ(proc_getln(tool, keep_line, &lines, PROC_ENV | 4, "env", "PROC_OLD", "PROC_NEW",
                         "PROC_NAME", extension),
              0);
    EXPECT_THAT(lines, ElementsAre("PROC_OLD=new\n", "PROC_NEW=2\n", "PROC_NAME=(unset)\n"));
    EXPECT_STREQ(getenv("PROC_OLD"), "old");
    EXPECT_EQ(getenv("PROC_NEW"), nullptr);
    EXPECT_EQ(proc_exec(tool, nullptr, nullptr, PROC_ENV | 2, "exit", "4", nullptr), 4);
}

TEST(proc, answers_in_the_manner_of_a_shell)
{
    for (const int code : {0, 3, 255})
        EXPECT_EQ(proc_exec(tool, nullptr, nullptr, 2, "exit", std::to_string(code).c_str()), code);
    // What is ignored here is ignored by the tool: under nohup SIGHUP, too.
    const auto hang_up = signal(SIGHUP, SIG_DFL), broken_pipe = signal(SIGPIPE, SIG_DFL);
    for (int number = 1; number < SIGSYS; number++) {
        if (number == SIGCHLD || number == SIGCONT || number == SIGURG || number == SIGWINCH ||
            number == SIGSTOP || number == SIGTSTP || number == SIGTTIN || number == SIGTTOU)
            continue;
        EXPECT_EQ(proc_exec(tool, nullptr, nullptr, 2, "kill", std::to_string(number).c_str()),
                  128 + number);
    }
    signal(SIGHUP, hang_up);
    signal(SIGPIPE, broken_pipe);
    // Who has its children reaped by the system is not told how they ended.
    EXPECT_EQ(wait_child(run_child([] {
                  signal(SIGCHLD, SIG_IGN);
                  return proc_exec(tool, nullptr, nullptr, 2, "exit", "0");
              })),
              129);
    const Capture log(2);
    EXPECT_EQ(proc_exec("/nowhere/tool", count_bytes, nullptr, 0), -1);
    EXPECT_EQ(log.text(),
              "proc: failed to start /nowhere/tool tool: No such file or directory\r\n");
}

TEST(proc, gives_the_child_three_descriptors_and_a_directory)
{
    const ScratchDirectory directory;
    const UniqueFd dirfd(open(directory.path().c_str(), O_RDONLY)); // inheritable on purpose
    std::vector<std::string> lines;
    EXPECT_EQ(proc_getln(tool, keep_line, &lines, 1, "fds"), 0);
    EXPECT_THAT(lines, ElementsAre("0\n", "1\n", "2\n"));
    lines.clear();
    EXPECT_EQ(proc_getfln(tool, dirfd.get(), keep_line, &lines, 1, "cwd"), 0);
    EXPECT_THAT(lines, ElementsAre(std::filesystem::canonical(directory.path()).string()));
}

TEST(proc, takes_descriptors_that_are_swapped_or_closed)
{
    // With 1 and 2 given crosswise, and with 0 closed so that pipes land there.
    for (const bool closed : {false, true}) {
        const Capture out(1), err(2);
        const pid_t child = run_child([closed] {
            if (closed)
                close(0);
            size_t bytes[2] = {};
            if (proc_exec(tool, count_bytes, bytes, 1, "both") != 0 || bytes[0] != 4 ||
                bytes[1] != 4)
                return 1;
            return proc_exec(tool, nullptr, nullptr, PROC_STDOUT | PROC_STDERR | 1, "both", 2, 1);
        });
        EXPECT_EQ(wait_child(child), 0);
        EXPECT_EQ(out.text(), "err\n");
        EXPECT_EQ(err.text(), "out\n");
    }
}

TEST(proc, cuts_output_into_lines)
{
    std::vector<std::string> lines;
    const proc_line_closure closure = [&](const char *line, size_t length) {
        lines.emplace_back(line, length);
    };
    EXPECT_EQ(proc_getln_b(tool, closure, 2, "out", "one\n\nthree"), 0);
    EXPECT_THAT(lines, ElementsAre("one\n", "\n", "three"));

    lines.clear();
    EXPECT_EQ(proc_getln_b(tool, closure, PROC_ERR2OUT | 1, "both"), 0);
    EXPECT_THAT(lines, ElementsAre("out\n", "err\n"));

    lines.clear();
    const Capture err(2);
    EXPECT_EQ(proc_getln_b(tool, closure, 2, "err", "only here\n"), 0);
    EXPECT_THAT(lines, ElementsAre());
    EXPECT_EQ(err.text(), "only here\n");
}

TEST(proc, keeps_up_with_a_tool_that_floods_both_streams)
{
    constexpr size_t size = 64 << 20;
    const std::string bytes = std::to_string(size);
    size_t counted[2] = {};
    EXPECT_EQ(proc_exec(tool, count_bytes, counted, 2, "flood", bytes.c_str()), 0);
    EXPECT_EQ(counted[0], size);
    EXPECT_EQ(counted[1], size);

    size_t length = 0;
    const UniqueFd before(fcntl(2, F_DUPFD_CLOEXEC, 3));
    const UniqueFd null(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(null.get(), 2);
    const int status = proc_getln_b(
        tool, [&](const char *, size_t part) { length += part; }, 2, "flood", bytes.c_str());
    dup2(before.get(), 2);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(length, size);
}

TEST(proc, waits_for_the_tool_and_for_whoever_holds_its_output)
{
    std::vector<std::string> lines;
    Ends input;
    const proc_line_closure release = [&](const char *line, size_t length) {
        lines.emplace_back(line, length);
        input.far.reset();
    };
    EXPECT_EQ(proc_getln_b(tool, release, PROC_STDIN | 1, "close-output", input.near.get()), 7);
    input = Ends();
    EXPECT_EQ(proc_getln_b(tool, release, PROC_STDIN | 1, "grandchild", input.near.get()), 0);
    EXPECT_THAT(lines, ElementsAre("closing\n", "orphan\n", "late\n"));
}

TEST(proc, answers_the_pid_at_once_when_asked_to)
{
    const Ends input;
    const pid_t pid = proc_exec(tool, nullptr, nullptr, PROC_NOWAIT | PROC_STDIN | 1,
                                "close-output", input.near.get());
    ASSERT_GT(pid, 0);
    int status;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0);
    kill(pid, SIGTERM);
    EXPECT_EQ(wait_child(pid), 128 + SIGTERM);
}

TEST(proc, leaves_nothing_behind)
{
    const size_t before = open_descriptors();
    size_t counted[2];
    const proc_line_closure ignore = [](const char *, size_t) {};
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(proc_exec("/bin/echo", count_bytes, counted, 1, "text"), 0);
        ASSERT_EQ(proc_getln_b("/bin/echo", ignore, PROC_ERR2OUT | 1, "text"), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace
