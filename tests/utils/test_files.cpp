#include "hostlib/utils/utils.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

unsigned mode_of(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(rmdirat, does_not_follow_links)
{
    const ScratchDirectory directory;
    directory.write("kept/file", "text");
    fs::create_directories(directory.path("tree/sub"));
    fs::create_directory_symlink(directory.path("kept"), directory.path("tree/sub/link"));
    fs::create_directory_symlink("nowhere", directory.path("tree/dangling"));
    EXPECT_EQ(rmdirat(AT_FDCWD, directory.path("tree").c_str()), 0);
    fs::create_directory_symlink(directory.path("kept"), directory.path("link"));
    EXPECT_EQ(rmdirat(AT_FDCWD, directory.path("link").c_str()), 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(directory.path("link"))));
    EXPECT_EQ(directory.read("kept/file"), "text");
}

TEST(rmdirat, says_what_can_not_be_removed)
{
    const ScratchDirectory directory;
    const Capture log(2);
    fs::create_directories(directory.path("tree/sub"));
    ASSERT_EQ(mkfifo(directory.path("tree/sub/fifo").c_str(), 0600), 0);
    EXPECT_EQ(rmdirat(AT_FDCWD, directory.path("tree").c_str()), -1);
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(fs::exists(directory.path("tree/sub/fifo")));
    EXPECT_EQ(rmdirat(AT_FDCWD, directory.path("absent").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(rmdirat(9999, "tree"), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(log.text(), "utils: " + directory.path("tree/sub") +
                              ": remove: Directory not empty\r\nutils: " +
                              directory.path("absent") + ": No such file or directory\r\n");
}

TEST(flock, is_shared_or_exclusive_between_processes)
{
    const ScratchDirectory home;
    home.write("settings.ini", "[tarv]\nvm_lock_dir = ~/locks\n");
    setenv("TARV_CONFIG_PATH", home.path("settings.ini").c_str(), 1);
    const int failed_check = in_home(home, [] {
        const int shared = flock_lock("one", false);
        const int second = flock_trylock("one", false);
        if (shared < 0 || second < 0)
            return 1;
        flock_unlock(second);
        if (flock_trylock("one", true) != -1 || errno != EWOULDBLOCK)
            return 2;
        flock_unlock(shared);
        return 0;
    });
    unsetenv("TARV_CONFIG_PATH");
    EXPECT_EQ(failed_check, 0);
    EXPECT_EQ(mode_of(home.path("locks/one")), 0600u);
}

TEST(pid_alive, is_true_of_what_runs_or_sleeps)
{
    EXPECT_EQ(pid_alive(-1), 0);
    EXPECT_EQ(pid_alive(getpid()), 1);
    const pid_t child = fork();
    if (child == 0) {
        // The name must not be mistaken for the fields that follow it.
        prctl(PR_SET_NAME, "a) Z 1 (");
        raise(SIGSTOP);
        for (;;)
            pause();
    }
    int status;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    EXPECT_EQ(pid_alive(child), 0);
    kill(child, SIGCONT);
    ASSERT_EQ(waitpid(child, &status, WCONTINUED), child);
    EXPECT_EQ(pid_alive(child), 1);
    kill(child, SIGKILL);
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, id_t(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(pid_alive(child), 0);
    waitpid(child, &status, 0);
    EXPECT_EQ(pid_alive(child), 0);
}

} // namespace
