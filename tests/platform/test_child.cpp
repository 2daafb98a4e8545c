#include "platform/child.h"
#include "platform/process.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <vector>

namespace {

// A launch of proctool whose standard output is a pipe.
class Tool
{
public:
    explicit Tool(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), TARV_PROCTOOL);
        m_launch = {.program = TARV_PROCTOOL, .arguments = std::move(arguments)};
        m_launch.out = m_pipe.far.get();
    }
    ChildLaunch &launch() { return m_launch; }
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
    Ends m_pipe;
    ChildLaunch m_launch;
};

int end_of(Child &child)
{
    int status = -1;
    EXPECT_EQ(child.wait(&status), 0);
    return child_exit_status(status);
}

TEST(child, keeps_only_the_descriptors_it_is_told_to)
{
    const UniqueFd low(open("/dev/null", O_RDONLY));
    const UniqueFd high(fcntl(low.get(), F_DUPFD_CLOEXEC, 100));
    const UniqueFd other(fcntl(low.get(), F_DUPFD, 200));
    Tool tool({"fds"});
    tool.launch().kept = {high.get()};
    Child child;
    ASSERT_EQ(child.start(tool.launch()), 0);
    EXPECT_EQ(tool.output(), "0\n1\n" + std::to_string(high.get()) + "\n2\n");
    EXPECT_EQ(end_of(child), 0);

    tool.launch().kept = {999};
    EXPECT_EQ(child.start(tool.launch()), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(child, ends_with_the_process_that_started_it)
{
    Tool tool({"ignore-term"});
    const pid_t supervisor = run_child([&] {
        // What it blocks is not its program's affair: the mode that ignores signals says its pid.
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        tool.launch().life = ChildLife::bound;
        Child child;
        if (child.start(tool.launch()) != 0)
            return 1;
        for (;;)
            pause();
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

TEST(child, that_is_held_runs_nothing_before_it_is_let_go)
{
    Tool tool({"out", "ran"});
    tool.launch().held = true;
    {
        Child dropped;
        ASSERT_EQ(dropped.start(tool.launch()), 0);
    }
    Child child;
    ASSERT_EQ(child.start(tool.launch()), 0);
    const int watch = child.watch();
    pollfd ends[] = {{tool.read_end(), POLLIN, 0}, {watch, POLLIN, 0}};
    EXPECT_EQ(poll(ends, 2, 50), 0) << "it neither wrote nor ended";
    ASSERT_EQ(child.go(), 0);
    EXPECT_EQ(tool.output(), "ran") << "once: the dropped one never ran";
    EXPECT_EQ(poll(&ends[1], 1, 10000), 1);
    int status = -1;
    EXPECT_TRUE(child.ended(&status));
    EXPECT_EQ(status, 0);

    ChildLaunch missing{.program = "/nowhere/tool", .arguments = {"tool"}, .held = true};
    Child failed;
    ASSERT_EQ(failed.start(missing), 0);
    EXPECT_EQ(failed.go(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(failed.pid(), -1);
    missing.held = false;
    EXPECT_EQ(failed.start(missing), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(child, is_killed_when_it_is_dropped_and_not_when_it_is_released)
{
    const Ends held_open;
    ChildLaunch launch{.program = TARV_PROCTOOL,
                       .arguments = {TARV_PROCTOOL, "cat"},
                       .in = held_open.near.get(),
                       .new_session = true};
    pid_t pid = -1;
    {
        Child child;
        ASSERT_EQ(child.start(launch), 0);
        pid = child.pid();
        EXPECT_EQ(getsid(pid), pid);
    }
    EXPECT_EQ(platform_process_state(pid), 0);
    Child child;
    ASSERT_EQ(child.start(launch), 0);
    pid = child.release();
    child = Child();
    EXPECT_NE(platform_process_state(pid), 0);
    kill(pid, SIGKILL);
    EXPECT_EQ(wait_child(pid), 128 + SIGKILL);
}

// What this process ignores is handed down or not, as the launch says.
TEST(child, has_the_signals_that_its_launch_says)
{
    const auto ignored = [](ChildSignals signals) {
        Ends output;
        Child child;
        EXPECT_EQ(child.start({.program = "/bin/sh",
                               .arguments = {"sh", "-c", "kill -USR1 $$; echo lives"},
                               .out = output.far.get(),
                               .signals = signals}),
                  0);
        return end_of(child);
    };
    const auto before = signal(SIGUSR1, SIG_IGN);
    EXPECT_EQ(ignored(ChildSignals::inherited), 0);
    EXPECT_EQ(ignored(ChildSignals::standard), 128 + SIGUSR1);
    signal(SIGUSR1, before);
}

} // namespace
