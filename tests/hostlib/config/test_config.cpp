#include "hostlib/config/config.h"

#include "tests/support/scratch.h"

#include "platform/file.h"
#include "platform/host.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The table is built once in a process: each case asks in a process of its own, and answers in
// text.
std::string in_new_process(const ScratchDirectory &home, const std::function<std::string()> &ask)
{
    const int status = in_home(home, [&] {
        home.write("answer", ask());
        return 0;
    });
    return status == 0 ? home.read("answer") : "status " + std::to_string(status);
}

std::string text(const char *value)
{
    return value != nullptr ? value : "(null)";
}

// What nobody is called in the names of files.
std::string user_name()
{
    const struct passwd *entry = getpwuid(geteuid() == 0 ? 65534 : getuid());
    return entry != nullptr ? entry->pw_name : "65534";
}

TEST(config, reads_its_files_in_order_and_the_last_definition_wins)
{
    const ScratchDirectory home;
    home.write("support/settings.ini", "a = outside\n[Tarv]\na = 1\nb = 1\nc = 1\nd = 1\nA = 2\n"
                                       "malformed line\n[other]\na = 9\n");
    home.write(std::string("support/settings_") + platform_build_name() + ".ini",
               "[tarv]\nb = 2\nc = 2\nd = 2\n");
    home.write("support/settings_" + user_name() + ".ini", "[tarv]\nc = 3\nd = 3\n");
    home.write(".tarv/settings.ini", "[tarv]\nd = 4\n");
    const std::string answer = in_new_process(home, [] {
        std::string all;
        ConfigEntry **link = nullptr;
        for (ConfigEntry *e = config_find(nullptr); e; e = e->next) {
            const bool linked = *e->previous == e && (!link || e->previous == link);
            all += std::string(e->name) + e->value + std::to_string(e->overridden) +
                   (linked ? " " : "!");
            link = &e->next;
        }
        return all;
    });
    EXPECT_EQ(answer, "A20 a10 b21 c31 d41 ");
}

TEST(config, takes_overrides_only_for_keys_of_a_file)
{
    const ScratchDirectory home;
    home.write(".tarv/settings.ini", "[tarv]\nvm_lib_dir = ~/vms\nimg_lib_dir = ~/images/all\n"
                                     "state_lib_dir = ~/one\nstate_lib_dir = ~/two\nempty =\n");
    const std::string answer = in_new_process(home, [] {
        setenv("TARV_VM_LIB_DIR", "~/elsewhere", 1);
        setenv("TARV_VM_LOCK_DIR", "/locks", 1);
        const Capture log(2);
        std::string all = text(config_get_path("vm_lib_dir"));
        all += "\n" + text(config_get_str("vm_lib_dir"));
        all += "\n" + text(config_get_str("empty"));
        all += "\n" + text(config_get_path("vm_lock_dir"));
        return all + "\n" + log.text();
    });
    EXPECT_EQ(answer, home.path("elsewhere") + "\n~/elsewhere\n(null)\n(null)\n" +
                          "config: vm_lock_dir: parameter not found\r\n");
    // Only a directory that is defined once is made.
    EXPECT_EQ(unsigned(fs::status(home.path("images/all")).permissions()), 0755u);
    EXPECT_FALSE(fs::exists(home.path("elsewhere")));
    EXPECT_FALSE(fs::exists(home.path("two")));
}

TEST(config, expands_paths_and_keeps_those_it_is_given)
{
    const ScratchDirectory home;
    const std::string line(600, 'x');
    home.write(".tarv/settings.ini",
               "[tarv]\na = ~/x\nb = ~x\nc = x/~\nten = /234567890\nimage = ~/i\n"
               "img_path = /a/bc\nimg_lib_dir = /a/b\ntag_lib_dir = ~/t\n"
               "long = /" +
                   line + "\n");
    const std::string answer = in_new_process(home, [] {
        char path[16];
        std::string all;
        for (const char *key : {"a", "b", "c", "long"})
            all += text(config_get_path(key)) + "\n";
        errno = 0;
        for (const char *key : {"ten", "long", "absent"}) {
            all += std::to_string(config_get_path_r(key, path, 10));
            all += " " + std::to_string(errno) + "\n";
        }
        const char *before = config_get_path("image");
        config_set_path("image", "/new");
        config_set_path("absent", "/new");
        all += text(before) + text(config_get_path("image")) + text(config_get_str("image"));
        config_set_path("image", nullptr);
        return all + text(config_get_path("image")) + "\n" + text(config_img_path());
    });
    EXPECT_EQ(answer, home.path("x") + "\n~x\nx/~\n/" + line + "\n10 0\n-1 " +
                          std::to_string(ENOBUFS) + "\n-1 " + std::to_string(ENOENT) + "\n" +
                          home.path("i") + "/new~/i" + home.path("i") +
                          "\n/a/bc:" + home.path("t"));
}

TEST(config, reads_numbers_and_truth_values)
{
    const std::pair<const char *, long> rows[] = {
        {"0x10", 16}, {"010", 8}, {"12abc", 0}, {"On", 1},  {"no", 0},
        {"TRUE", 1},  {"16G", 0}, {"-5", -5},   {"yes", 1}, {"17179869184", 17179869184}};
    const ScratchDirectory home;
    std::string file = "[tarv]\ndebug_mode = 1\n", expected = "0 ";
    for (size_t i = 0; i < std::size(rows); i++) {
        file += "k" + std::to_string(i) + " = " + rows[i].first + "\n";
        expected += std::to_string(rows[i].second) + " ";
    }
    home.write(".tarv/settings.ini", file);
    const std::string answer = in_new_process(home, [&] {
        std::string all = std::to_string(config_get_long("debug_mode")) + " ";
        for (size_t i = 0; i < std::size(rows); i++)
            all += std::to_string(config_get_long(("k" + std::to_string(i)).c_str())) + " ";
        return all;
    });
    EXPECT_EQ(answer, expected);
}

TEST(config, ends_the_process_when_settings_can_not_be_read)
{
    const ScratchDirectory home;
    home.write("file", "[tarv]\na = 1\n");
    const auto status_of = [&](const std::string &list) {
        return in_home(home, [&] {
            setenv("TARV_CONFIG_PATH", list.c_str(), 1);
            return int(config_get_long("a"));
        });
    };
    const Capture log(2);
    EXPECT_EQ(status_of("/nowhere::" + home.path("file") + ":/usr"), 1);
    EXPECT_EQ(status_of("~/absent:~/file"), 1);
    EXPECT_EQ(status_of("/dev/zero:" + home.path("file")), 1);
    EXPECT_EQ(log.text(), "config: /dev/zero: File too large\r\n");
    // A file of just the cap is read whole, and nothing is said.
    std::string whole = "[tarv]\na = 7\n";
    whole.resize(1 << 20, '\n');
    home.write("whole", whole);
    EXPECT_EQ(status_of(home.path("whole")), 7);
    EXPECT_EQ(log.text(), "config: /dev/zero: File too large\r\n");
    home.write("longer", whole + "\n");
    EXPECT_EQ(status_of(home.path("longer")), 7);
    EXPECT_NE(log.text().find("/longer: File too large\r\n"), std::string::npos);
    EXPECT_EQ(status_of(home.path("file") + "/below"), 78);
    EXPECT_NE(log.text().find("failed to read config: Not a directory"), std::string::npos);
}

// Whoever rewrites a file of settings holds its lock: nobody reads half of it.
TEST(config, waits_for_the_lock_of_its_files)
{
    const ScratchDirectory home;
    home.write(".tarv/settings.ini", "[tarv]\na = old\n");
    UniqueFd writer(platform_openat_locked(AT_FDCWD, home.path(".tarv/settings.ini").c_str(),
                                           O_RDWR, FileLock::exclusive, 0));
    ASSERT_TRUE(writer);
    std::string answer;
    struct stat file;
    ASSERT_EQ(fstat(writer.get(), &file), 0);
    std::thread reader([&] {
        answer = in_new_process(home, [&] {
            writer.reset(); // a child has a share in the lock
            return text(config_get_str("a"));
        });
    });
    const auto is_waited_for = [inode = ":" + std::to_string(file.st_ino) + " "] {
        std::ifstream locks("/proc/locks");
        for (std::string line; std::getline(locks, line);)
            if (line.find("-> FLOCK") != line.npos && line.find(inode) != line.npos)
                return true;
        return false;
    };
    for (int i = 0; i < 10000 && !is_waited_for(); i++)
        usleep(1000);
    EXPECT_EQ(pwrite(writer.get(), "[tarv]\na = new\n", 15, 0), 15);
    writer.reset();
    reader.join();
    EXPECT_EQ(answer, "new");
}

TEST(config, tells_the_platform)
{
    const auto platform_of = [](const char *arm64) {
        return wait_child(run_child([&] {
            setenv("TARV_HOST_ARM64", arm64, 1);
            return config_get_platform();
        }));
    };
    EXPECT_EQ(platform_of("0"), 1);
    EXPECT_EQ(platform_of("1"), 2);
}

TEST(config, says_when_there_is_no_home_directory)
{
    const ScratchDirectory home;
    home.write("file", "[tarv]\na = 1\n");
    const Capture log(2);
    EXPECT_EQ(in_home(home,
                      [&] {
                          setenv("HOME", "/nowhere", 1);
                          setenv("TARV_CONFIG_PATH", ("~/file:" + home.path("file")).c_str(), 1);
                          return int(config_get_long("a"));
                      }),
              1);
    EXPECT_EQ(log.text(), "config: ~/file is passed over: home directory \"/nowhere\": No such "
                          "file or directory\r\n");
}

// Each thread finds whole paths, and all of them the same.
TEST(config, hands_out_paths_to_threads_at_once)
{
    const ScratchDirectory home;
    std::string file = "[tarv]\n";
    constexpr int KEYS = 200;
    for (int i = 0; i < KEYS; i++)
        file += "k" + std::to_string(i) + " = ~/" + std::string(200, 'x') + "\n";
    home.write(".tarv/settings.ini", file);
    const std::string expected = home.path(std::string(200, 'x'));
    EXPECT_EQ(in_home(home,
                      [&] {
                          config_find(nullptr);
                          std::atomic<int> waiting = 8, wrong = 0;
                          std::vector<std::thread> threads;
                          for (int t = 0; t < 8; t++)
                              threads.emplace_back([&] {
                                  for (waiting--; waiting > 0;)
                                      ;
                                  for (int i = 0; i < KEYS; i++) {
                                      const std::string key = "k" + std::to_string(i);
                                      const char *path = config_get_path(key.c_str());
                                      wrong += path == nullptr || path != expected ||
                                               path != config_get_path(key.c_str());
                                  }
                              });
                          for (std::thread &thread : threads)
                              thread.join();
                          return wrong.load() != 0;
                      }),
              0);
}

TEST(config, asks_the_installer_for_the_version_of_the_add_ons)
{
    const ScratchDirectory home;
    home.write(".tarv/settings.ini", "[tarv]\naddons_pkg = com.quelda.addons\n");
    // A copy: the sources may lie where no other user can read.
    const std::string tool = home.path("pkgutil-tool");
    std::filesystem::copy_file(TARV_PROCTOOL, tool);
    const auto ask = [&] {
        return in_new_process(home, [&] {
            platform_set_path(PlatformPath::pkgutil, tool.c_str());
            const Capture log(2);
            const std::string version = text(config_get_str("addons-version"));
            return version + log.text();
        });
    };
    EXPECT_EQ(ask(), "10.2.3");
    home.write(".tarv/settings.ini", "[tarv]\naddons_pkg = unknown\n");
    EXPECT_EQ(ask(), "(null)No receipt for 'unknown' found\nconfig: failed to get addons version: "
                     "pkgutil tool ended with status 1\r\n");
}

} // namespace
