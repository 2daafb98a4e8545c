#include "platform/process.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// A launch of proctool whose standard output is a pipe.
class Tool
{
public:
    explicit Tool(std::vector<std::string> arguments) : m_arguments(std::move(arguments))
    {
        m_arguments.insert(m_arguments.begin(), TARV_PROCTOOL);
        for (std::string &argument : m_arguments)
            m_argv.push_back(argument.data());
        m_argv.push_back(nullptr);
    }
    platform_launch launch() const
    {
        return {m_argv[0], m_argv.data(), nullptr, AT_FDCWD, -1, m_pipe.far.get(), -1};
    }
    // The rest of what it prints, once this process no longer holds the other end.
    std::string output()
    {
        m_pipe.far.reset();
        std::string text;
        char chunk[256];
        for (ssize_t count; (count = read(m_pipe.near.get(), chunk, sizeof chunk)) > 0;)
            text.append(chunk, size_t(count));
        return text;
    }
    int read_end() const { return m_pipe.near.get(); }

private:
    std::vector<std::string> m_arguments;
    std::vector<char *> m_argv;
    Ends m_pipe;
};

TEST(spawn_bound, keeps_only_the_descriptors_it_is_told_to)
{
    const UniqueFd low(open("/dev/null", O_RDONLY));
    const UniqueFd high(fcntl(low.get(), F_DUPFD_CLOEXEC, 100));
    const UniqueFd other(fcntl(low.get(), F_DUPFD, 200));
    Tool tool({"fds"});
    const int extra[] = {high.get()};
    const pid_t pid = platform_spawn_bound(tool.launch(), extra, 1);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(tool.output(), "0\n1\n" + std::to_string(high.get()) + "\n2\n");
    EXPECT_EQ(wait_child(pid), 0);

    const int closed[] = {999};
    EXPECT_EQ(platform_spawn_bound(tool.launch(), closed, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(spawn_bound, ends_with_the_process_that_started_it)
{
    Tool tool({"ignore-term"});
    const pid_t supervisor = run_child([&] {
        // What it blocks is not its program's affair: the mode that ignores signals says its pid.
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        platform_spawn_bound(tool.launch(), nullptr, 0);
        for (;;)
            pause();
        return 0;
    });
    char text[32] = {};
    ASSERT_GT(read(tool.read_end(), text, sizeof text - 1), 0);
    const pid_t pid = std::stoi(text);
    EXPECT_GT(platform_process_identity(pid), 0u);
    const int64_t age = time(nullptr) - platform_process_start(pid);
    EXPECT_LE(std::abs(age), 60);
    kill(supervisor, SIGKILL);
    EXPECT_EQ(wait_child(supervisor), 128 + SIGKILL);
    // Its output ends when it does.
    EXPECT_EQ(tool.output(), "");
}

} // namespace
