// What a call that succeeded has seen onto the disk. The C library's fsync is watched: a loss of
// power right after an answer keeps what was synced, and nothing else is promised.
#include "hostlib/vm/img.h"
#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"
#include "platform/file.h"
#include "policy/owners.h"
#include "tests/hostlib/vm/home.h"

#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;

namespace {

// The texts of files and the entries of directories as they were when they were synced, by inode:
// names change.
std::map<ino_t, std::string> synced_texts;
std::map<ino_t, std::set<std::string>> synced_entries;

ino_t inode(const fs::path &path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
}

std::set<std::string> entries(const fs::path &directory)
{
    std::set<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

} // namespace

extern "C" int fsync(int fd)
{
    struct stat status;
    char path[1024];
    if (fstat(fd, &status) == 0 && platform_fd_path(fd, path, sizeof path) == 0) {
        if (S_ISDIR(status.st_mode))
            synced_entries[status.st_ino] = entries(path);
        else
            synced_texts[status.st_ino] = read_file(path);
    }
    return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

class Durable : public testing::Test
{
protected:
    Durable()
    {
        Home::get().clear();
        fs::create_directory(dir);
        forget();
    }
    static void forget()
    {
        synced_texts.clear();
        synced_entries.clear();
    }
    static bool is_text_safe(const fs::path &path)
    {
        return synced_texts[inode(path)] == read_file(path) && !read_file(path).empty();
    }
    static bool are_names_safe(const fs::path &directory)
    {
        return synced_entries.contains(inode(directory)) &&
               synced_entries[inode(directory)] == entries(directory);
    }

    const fs::path dir = Home::get().vms / "vm";
    const std::unique_ptr<vmlib, decltype(&vmlib_close)> lib{vmlib_open(nullptr), vmlib_close};
};

} // namespace

TEST_F(Durable, areRecordsThatWereWritten)
{
    const VmOwner vm(vm_open(dir.c_str()));
    const KvOwner config(kv_new_type(KV_MAP)), tag(kv_new_type(KV_STRING, "1.0"));
    kv_set_type(config.get(), "name", "a", KV_STRING);
    ASSERT_EQ(vm_write_config(vm.get(), config.get()), 0);
    ASSERT_EQ(vm_write_version(vm.get(), tag.get()), 0);
    EXPECT_TRUE(is_text_safe(dir / "config.yaml") && is_text_safe(dir / "localversion"));
    EXPECT_TRUE(are_names_safe(dir));
    forget();
    ASSERT_EQ(vm_write_state(vm.get(), "saved"), 0);
    EXPECT_TRUE(is_text_safe(dir / "config.yaml")) << "rewritten in its place";
    forget();
    ASSERT_EQ(vm_write_version(vm.get(), nullptr), 0);
    EXPECT_TRUE(are_names_safe(dir));
}

TEST_F(Durable, areNamesThatWereMadeAndRemoved)
{
    const VmOwner vm(vmlib_create(lib.get(), "made", nullptr));
    ASSERT_TRUE(vm);
    EXPECT_TRUE(are_names_safe(Home::get().vms));
    forget();
    ASSERT_EQ(vmlib_delete(lib.get(), "made", nullptr), 0);
    EXPECT_TRUE(are_names_safe(Home::get().vms));
}

TEST_F(Durable, isTheQueueOfImages)
{
    const fs::path images = Home::get().images;
    ASSERT_EQ(img_unlink("one"), 0);
    EXPECT_TRUE(is_text_safe(images / ".removal-queue") && are_names_safe(images));
    write_file(images / "one", "");
    forget();
    ASSERT_EQ(img_unlink("two"), 0);
    ASSERT_EQ(img_purge([](const char *name, void *) { return *name == 't'; }, nullptr), 1);
    EXPECT_EQ(read_file(images / ".removal-queue"), "two\n");
    EXPECT_TRUE(is_text_safe(images / ".removal-queue") && are_names_safe(images));
}
