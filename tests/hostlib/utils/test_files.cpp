#include "hostlib/utils/utils.h"

#include "tests/support/scratch.h"
#include "tests/support/small_disk.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

unsigned mode_of(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(openx, creates_parents_under_the_home_directory)
{
    const ScratchDirectory home;
    umask(022);
    const int failed = in_home(home, [] {
        const UniqueFd file(openx("~/a/b/c.txt", O_WRONLY | O_CREAT, 0600));
        if (!file || home_fd() < 0 || openx("~/x/y", O_WRONLY) != -1 || errno != ENOENT)
            return 1;
        return renamex("~/a/b/c.txt", "~/a/moved");
    });
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(mode_of(home.path("a/b")), 0755u);
    EXPECT_EQ(mode_of(home.path("a/moved")), 0600u);
    EXPECT_FALSE(fs::exists(home.path("x")));

    EXPECT_EQ(openx(nullptr, O_RDONLY), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(fopenat, appends_to_what_is_opened_for_writing_alone)
{
    const ScratchDirectory directory;
    const UniqueFd dirfd(open(directory.path().c_str(), O_RDONLY));
    directory.write("file", "first");
    const auto put = [&](int flags, const char *text) {
        FILE *stream = fopenat(dirfd.get(), "file", flags, 0600);
        ASSERT_NE(stream, nullptr);
        std::fputs(text, stream);
        _auto_file_close(&stream);
    };
    put(O_WRONLY, "+second");
    EXPECT_EQ(directory.read("file"), "first+second");
    put(O_RDWR, "FIRST");
    EXPECT_EQ(directory.read("file"), "FIRST+second");
    put(O_RDWR | O_APPEND, "+third");
    EXPECT_EQ(directory.read("file"), "FIRST+second+third");
    EXPECT_EQ(fopenat(dirfd.get(), nullptr, O_RDONLY), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(mkdirat_p, makes_parents_first_and_accepts_what_exists)
{
    const ScratchDirectory directory;
    umask(022);
    const UniqueFd dirfd(open(directory.path().c_str(), O_RDONLY));
    EXPECT_EQ(mkdirat_p(dirfd.get(), "x/y/z", 0750), 0);
    EXPECT_EQ(mode_of(directory.path("x")), 0750u);
    EXPECT_EQ(mkdirat_p(dirfd.get(), "x/y/z", 0750), 0);
    EXPECT_EQ(mkdirat_p(AT_FDCWD, directory.path("q/").c_str(), 0755), 0);
    directory.write("file", "");
    EXPECT_EQ(mkdirat_p(dirfd.get(), "file/sub", 0755), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(rmdirat, removes_wide_and_deep_trees_and_keeps_errno)
{
    const ScratchDirectory directory;
    std::string deep = "tree";
    for (int level = 0; level < 200; level++)
        deep += "/level";
    fs::create_directories(directory.path(deep));
    for (int i = 0; i < 10000; i++)
        std::ofstream(directory.path("tree/level/" + std::to_string(i)));
    const UniqueFd dirfd(open(directory.path().c_str(), O_RDONLY));
    errno = EDOM;
    EXPECT_EQ(rmdirat(dirfd.get(), "tree"), 0);
    EXPECT_EQ(errno, EDOM);
    EXPECT_FALSE(fs::exists(directory.path("tree")));
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

TEST(rmdirat, leaves_what_is_mounted_in_the_tree)
{
    const ScratchDirectory directory;
    const std::string mounted = directory.path("tree/mounted");
    fs::create_directories(mounted);
    const int result = wait_child(run_child([&] {
        const SmallDisk disk(mounted, "64k");
        if (!disk.mounted())
            return 77;
        write_file(mounted + "/file", "text");
        const Capture log(2);
        if (rmdirat(AT_FDCWD, directory.path("tree").c_str()) != -1)
            return 1;
        return read_file(mounted + "/file") == "text" ? 0 : 2;
    }));
    if (result == 77)
        GTEST_SKIP() << "no small file system can be mounted here";
    EXPECT_EQ(result, 0);
}

TEST(home_dir, of_root_is_that_of_the_password_database)
{
    const auto home_with = [](const char *home) {
        return wait_child(run_child([&] {
            setenv("HOME", home, 1);
            const struct passwd *entry = getpwuid(getuid());
            const std::string expected = geteuid() == 0 ? entry->pw_dir : home;
            return home_dir() == expected ? 0 : 1;
        }));
    };
    EXPECT_EQ(home_with("/elsewhere"), 0);
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

// Waits, with a deadline, until a process waits for somebody's lock.
bool is_blocked(pid_t pid)
{
    const std::string number = " " + std::to_string(pid) + " ";
    for (int i = 0; i < 20000; i++, usleep(1000)) {
        std::ifstream locks("/proc/locks");
        for (std::string line; std::getline(locks, line);)
            if (line.find("-> FLOCK") != line.npos && line.find(number) != line.npos)
                return true;
    }
    return false;
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
        // A waiting lock is granted once the holder, here a process that ends, lets go.
        const Ends ready;
        const pid_t holder = run_child([&ready] {
            const int held = flock_lock("two", true);
            return held >= 0 && write(ready.far.get(), "", 1) == 1 && is_blocked(getppid()) ? 0 : 5;
        });
        char byte;
        if (read(ready.near.get(), &byte, 1) != 1 || flock_lock("two", false) < 0)
            return 3;
        flock_unlock(-1);
        return wait_child(holder);
    });
    unsetenv("TARV_CONFIG_PATH");
    EXPECT_EQ(failed_check, 0);
    EXPECT_EQ(mode_of(home.path("locks/one")), 0600u);
}

TEST(pid_alive, is_true_of_what_runs_or_sleeps)
{
    EXPECT_EQ(pid_alive(-1), 0);
    EXPECT_EQ(pid_alive(getpid()), 1);
    const pid_t child = run_child([] {
        // The name must not be mistaken for the fields that follow it.
        prctl(PR_SET_NAME, "a) Z 1 (");
        raise(SIGSTOP);
        for (;;)
            pause();
        return 0;
    });
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
    wait_child(child);
    EXPECT_EQ(pid_alive(child), 0);
}

} // namespace
