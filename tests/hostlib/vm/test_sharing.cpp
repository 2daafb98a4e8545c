#include "hostlib/vm/owners.h"
#include "hostlib/vm/vm.h"
#include "policy/owners.h"
#include "tests/hostlib/vm/home.h"
#include "tests/support/small_disk.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

// TARV_TEST_SECONDS asks for a longer run than that of the test suite.
Clock::time_point end_of_run()
{
    const char *seconds = getenv("TARV_TEST_SECONDS");
    return Clock::now() + std::chrono::seconds(seconds ? atoi(seconds) : 2);
}

// A document whose end repeats its beginning.
KvOwner document(int items)
{
    KvOwner tree(kv_new_type(KV_MAP));
    kv_set_type(tree.get(), "first", items, KV_INT);
    struct kv *list = kv_new_type(KV_LIST);
    for (int i = 0; i < items; ++i)
        kv_set_type(list, nullptr, "0123456789", KV_STRING);
    kv_set(tree.get(), "items", list);
    kv_set_type(tree.get(), "last", items, KV_INT);
    return tree;
}

bool is_whole(const struct kv *tree)
{
    const int64_t items = kv_get_int(tree, "first", -1);
    return items >= 0 && kv_get_int(tree, "last", -2) == items &&
           kv_count(kv_get(tree, "items")) == static_cast<size_t>(items);
}

std::string tag_of(size_t length)
{
    return std::string(length, static_cast<char>('a' + length % 26));
}

int write_until_end(const fs::path &dir, Clock::time_point end)
{
    const VmOwner vm(vm_open(dir.c_str()));
    for (int round = 0; Clock::now() < end; ++round) {
        const int items = round * 7919 % 1500;
        const KvOwner tag(kv_new_type(KV_STRING, tag_of(size_t(items) + 1).c_str()));
        if (vm_write_config(vm.get(), document(items).get()) != 0 ||
            vm_write_version(vm.get(), tag.get()) != 0)
            return 2;
        // Now and then the files have to appear anew.
        if (round % 50 == 49) {
            fs::remove(dir / "config.yaml");
            vm_write_version(vm.get(), nullptr);
        }
    }
    return 0;
}

int read_until_end(const fs::path &dir, Clock::time_point end)
{
    const VmOwner vm(vm_open(dir.c_str()));
    int seen = 0;
    while (Clock::now() < end) {
        errno = 0;
        const KvOwner tree(vm_read_config(vm.get()));
        if (tree ? !is_whole(tree.get()) : errno != ENOENT)
            return 3;
        seen += tree ? 1 : 0;
        const KvOwner version(vm_read_version(vm.get()));
        const std::string tag = kv_get_str(version.get(), "tag", "");
        if (version ? tag.empty() || tag != tag_of(tag.size()) : errno != ENOENT)
            return 4;
    }
    return seen > 0 ? 0 : 5;
}

// Tries to write a longer configuration and version once `fill` has used up the room; 0 when both
// failed and their old texts are whole.
int overfill(const fs::path &dir, const std::function<void()> &fill)
{
    const VmOwner vm(vm_open(dir.c_str()));
    const KvOwner short_tag(kv_new_type(KV_STRING, "old"));
    const KvOwner long_tag(kv_new_type(KV_STRING, tag_of(60000).c_str()));
    if (vm_write_config(vm.get(), document(10).get()) != 0 ||
        vm_write_version(vm.get(), short_tag.get()) != 0)
        return 2;
    const std::string before = read_file(dir / "config.yaml");
    fill();
    if (vm_write_config(vm.get(), document(5000).get()) != -1 ||
        vm_write_version(vm.get(), long_tag.get()) != -1)
        return 3;
    fs::create_directory(dir / "new");
    const VmOwner fresh(vm_open((dir / "new").c_str()));
    if (vm_write_config(fresh.get(), document(5000).get()) != -1 || !fs::is_empty(dir / "new"))
        return 4;
    return read_file(dir / "config.yaml") == before && read_file(dir / "localversion") == "old" ? 0
                                                                                                : 5;
}

class Sharing : public testing::Test
{
protected:
    Sharing()
    {
        Home::get().clear();
        fs::create_directory(dir);
    }
    const fs::path dir = Home::get().vms / "shared";
};

} // namespace

TEST_F(Sharing, noReaderSeesATornOrEmptyFile)
{
    const auto end = end_of_run();
    std::vector<pid_t> children;
    for (const auto work : {write_until_end, write_until_end, read_until_end, read_until_end})
        children.push_back(run_child([&] { return work(dir, end); }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_child(child), 0);
    EXPECT_EQ(Home::get().takeLog(), "");
}

TEST_F(Sharing, aFullDiskKeepsTheOldText)
{
    const int result = wait_child(run_child([&] {
        const SmallDisk small(dir, "16k");
        return small.mounted() ? overfill(dir, [&] { small.fill(); }) : 77;
    }));
    if (result == 77)
        GTEST_SKIP() << "no right to mount a small file system";
    EXPECT_EQ(result, 0);
    EXPECT_NE(
        Home::get().takeLog().find("vm: config.yaml: failed to write: No space left on device\r\n"),
        std::string::npos);
}

TEST_F(Sharing, aFileSizeLimitKeepsTheOldText)
{
    EXPECT_EQ(wait_child(run_child([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  return overfill(dir, [] {
                      const rlimit limit{40000, 40000};
                      setrlimit(RLIMIT_FSIZE, &limit);
                  });
              })),
              0);
}
