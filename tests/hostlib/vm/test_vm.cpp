#include "hostlib/vm/vm.h"

#include "hostlib/vm/owners.h"
#include "policy/owners.h"
#include "tests/hostlib/vm/home.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

const std::string id = "0b7e4c5e-4a53-4f0c-9d3e-6c1b7a2f9e01";

class Record : public testing::Test
{
protected:
    Record()
    {
        Home::get().clear();
        fs::create_directory(dir);
    }
    VmOwner open() const
    {
        VmOwner vm(vm_open(dir.c_str()));
        vm_setid(vm.get(), id.c_str());
        return vm;
    }
    std::string name_of(struct vm *vm) const
    {
        const KvOwner config(vm_read_config(vm));
        return kv_get_str(config.get(), "name", "none");
    }
    std::string queue() const { return read_file(Home::get().images / ".removal-queue"); }

    const fs::path dir = Home::get().vms / id;
};

} // namespace

TEST_F(Record, settlesItsConfigurationFileOnce)
{
    write_file(dir / (id + ".yaml"), "name: older\n");
    const VmOwner unnamed(vm_open(dir.c_str()));
    EXPECT_STREQ(vm_config_path(unnamed.get()), "config.yaml");
    EXPECT_EQ(name_of(unnamed.get()), "none");
    const VmOwner older = open();
    EXPECT_EQ(name_of(older.get()), "older");

    write_file(dir / "config.yaml", "name: newer\n");
    EXPECT_EQ(name_of(older.get()), "older");
    EXPECT_EQ(name_of(open().get()), "newer");
    const VmOwner by_file(vm_open((dir / (id + ".yaml")).c_str()));
    EXPECT_EQ(name_of(by_file.get()), "older");
    EXPECT_EQ(vm_getid(by_file.get()), nullptr);

    fs::rename(dir, Home::get().vms / "moved");
    EXPECT_EQ(name_of(older.get()), "older");
}

TEST_F(Record, rewritesWhatItReadAndNothingElse)
{
    write_file(dir / "config.yaml", "# mine\nname: a\nunknown: \"007\"\nlong: aaaaaaaaaaaaaaaa\n");
    const VmOwner vm = open();
    const KvOwner config(vm_read_config(vm.get()));
    kv_free(kv_detach(config.get(), "long"));
    ASSERT_EQ(vm_write_config(vm.get(), config.get()), 0);
    EXPECT_EQ(read_file(dir / "config.yaml"), "# mine\nname: a\nunknown: \"007\"\n");

    fs::remove(dir / "config.yaml");
    ASSERT_EQ(vm_write_config(vm.get(), config.get()), 0);
    EXPECT_EQ(name_of(vm.get()), "a");
    EXPECT_EQ(fs::status(dir / "config.yaml").permissions() & fs::perms(0133), fs::perms::none);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 1);

    const VmOwner file(vm_open("/dev/null"));
    EXPECT_EQ(vm_write_config(file.get(), config.get()), -1);
    EXPECT_EQ(Home::get().takeLog(), "vm: config.yaml: failed to open: Not a directory\r\n");
    EXPECT_EQ(vm_write_config(vm.get(), nullptr), -1);
    EXPECT_TRUE(Home::get().takeLog().starts_with("vm: failed to serialize configuration: "));
    EXPECT_EQ(name_of(vm.get()), "a");
}

// What people write beside a configuration stays when a program changes the configuration.
TEST_F(Record, keepsCommentsAndLinesThatDidNotChange)
{
    const struct
    {
        std::string before;
        std::function<void(struct kv *)> change;
        std::string after;
    } cases[] = {
        {"# head\nname: a # mine\n\n# memory\nram:   {size: 1}\n# end\n",
         [](struct kv *tree) { kv_set_type(tree, "state_file", "s", KV_STRING); },
         "# head\nname: a # mine\n\n# memory\nram:   {size: 1}\nstate_file: s\n# end\n"},
        {"name: a\n# the state\nstate_file: s\n# end\n",
         [](struct kv *tree) { kv_free(kv_detach(tree, "state_file")); },
         "name: a\n# the state\n# end\n"},
        {"name: a\ndisks:\n  # first\n  - file: x # old\n  # second\n  - file: y\n",
         [](struct kv *tree) { kv_set_type(kv_find(tree, "disks[0]"), "file", "z", KV_STRING); },
         "name: a\ndisks:\n  # first\n- file: z\n  # second\n- file: y\n"},
        {"# a\nname: a\n# b\nboot: disk\n",
         [](struct kv *tree) { kv_free(kv_detach(tree, "name")); }, "# a\n# b\nboot: disk\n"},
        {"note: |\n  one\n  # no comment\nname: a\n",
         [](struct kv *tree) { kv_set_type(tree, "note", "two", KV_STRING); },
         "note: two\n  # no comment\nname: a\n"},
        {"long: 'one\n  two'\n# lost\nname: a\n",
         [](struct kv *tree) { kv_set_type(tree, "name", "b", KV_STRING); },
         "long: 'one two'\nname: b\n"},
    };
    const VmOwner vm = open();
    for (const auto &each : cases) {
        write_file(dir / "config.yaml", each.before);
        const KvOwner config(vm_read_config(vm.get()));
        each.change(config.get());
        ASSERT_EQ(vm_write_config(vm.get(), config.get()), 0);
        EXPECT_EQ(read_file(dir / "config.yaml"), each.after) << each.before;
    }
}

// A fifo has no end, and its opening waits for a writer that nobody has promised.
TEST_F(Record, isNotHeldUpByAFifoInItsPlace)
{
    ASSERT_EQ(mkfifo((dir / "config.yaml").c_str(), 0600), 0);
    ASSERT_EQ(mkfifo((dir / "localversion").c_str(), 0600), 0);
    const VmOwner vm = open();
    EXPECT_EQ(vm_read_config(vm.get()), nullptr);
    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_EQ(vm_read_version(vm.get()), nullptr);
    const KvOwner config(kv_new_type(KV_MAP));
    EXPECT_EQ(vm_write_config(vm.get(), config.get()), -1);
    EXPECT_EQ(vm_write_state(vm.get(), "s"), -1);
}

TEST_F(Record, readsAndWritesItsVersionAsBytes)
{
    const VmOwner vm = open();
    EXPECT_EQ(vm_read_version(vm.get()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(Home::get().takeLog(), "");
    const std::pair<const char *, const char *> cases[] = {
        {";c\n1.2 beta\r\nmore\n", "1.2 beta\r\n"}, {"1.2", "1.2"}, {"\n1.2\n", "\n"}};
    for (const auto &[text, tag] : cases) {
        write_file(dir / "localversion", text);
        const KvOwner version(vm_read_version(vm.get()));
        EXPECT_STREQ(kv_get_str(version.get(), "tag", ""), tag);
    }
    write_file(dir / "localversion", ";a\n;b");
    EXPECT_EQ(vm_read_version(vm.get()), nullptr);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(Home::get().takeLog(), "vm: failed to read tag from the version file\r\n");

    const KvOwner text(kv_new_type(KV_STRING, "2")), tree(kv_new_type(KV_MAP));
    kv_set_type(tree.get(), "tag", "3.0", KV_STRING);
    EXPECT_EQ(vm_write_version(vm.get(), tree.get()), 0);
    EXPECT_EQ(read_file(dir / "localversion"), "3.0");
    EXPECT_EQ(vm_write_version(vm.get(), text.get()), 0);
    EXPECT_EQ(read_file(dir / "localversion"), "2");
    EXPECT_EQ(vm_write_version(vm.get(), nullptr), 0);
    EXPECT_EQ(vm_write_version(vm.get(), nullptr), -1);
    fs::create_symlink("localversion", dir / "localversion");
    EXPECT_EQ(vm_read_version(vm.get()), nullptr);
    EXPECT_EQ(Home::get().takeLog(),
              "vm: failed to read localversion: Too many levels of symbolic links\r\n");
}

// Times of modification: the latest of the configuration, the firmware's store and the disks that
// lie in the library; for the moment of the last stop that of the first disk alone.
TEST_F(Record, tellsWhenItWasLastUsed)
{
    const fs::path images = Home::get().images, elsewhere = Home::get().dir / "elsewhere.img";
    const auto set_time = [](const fs::path &file, time_t seconds) {
        const timespec times[2] = {{seconds + 5000, 0}, {seconds, 7}};
        EXPECT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
    };
    write_file(dir / "config.yaml", "hard_drives: [{file: a.img}, {file: 'http://h/i'}, {file: " +
                                        elsewhere.string() + "}, {file: b.img}]\n");
    for (const fs::path &file :
         {dir / "nvram", images / "a.img", images / "b.img", elsewhere, dir / "config.yaml"}) {
        if (file != dir / "config.yaml")
            write_file(file, "");
        set_time(file, 1000);
    }
    const VmOwner vm = open();
    timespec time{};
    for (const fs::path &file : {dir / "config.yaml", dir / "nvram", images / "b.img"}) {
        set_time(file, 3000);
        ASSERT_EQ(vm_mtime(vm.get(), &time), 0);
        EXPECT_EQ(time.tv_sec, 3000) << file;
        EXPECT_EQ(time.tv_nsec, 7) << file;
        set_time(file, 1000);
    }
    set_time(elsewhere, 9000);
    ASSERT_EQ(vm_atime(vm.get(), &time), 0);
    EXPECT_EQ(time.tv_sec, 1000);
    set_time(images / "a.img", 2000);
    EXPECT_EQ(vm_stop_date(vm.get()), 2000);
    fs::remove(images / "b.img");
    EXPECT_EQ(vm_mtime(vm.get(), &time), -1);
    EXPECT_EQ(vm_stop_date(vm.get()), 2000);
    fs::remove(images / "a.img");
    Home::get().takeLog();
    EXPECT_EQ(vm_stop_date(vm.get()), -1);
    EXPECT_EQ(Home::get().takeLog(),
              "vm: " + id + ": failed to stat a.img: No such file or directory\r\n");
    EXPECT_EQ(vm_mtime(nullptr, &time), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Record, removesItsSuspendedStateFromBothPlaces)
{
    const fs::path absolute = Home::get().dir / "state.img";
    const VmOwner vm = open();
    write_file(absolute, "");
    write_file(dir / "config.yaml", "name: a\n");
    EXPECT_EQ(vm_read_state(vm.get()), nullptr);
    EXPECT_EQ(vm_write_state(vm.get(), "saved.img"), 0);
    write_file(dir / "state.yaml", "state_file: " + absolute.string() + "\n");
    const KvOwner state(vm_read_state(vm.get()));
    EXPECT_STREQ(kv_get_str(state.get(), "state_file", ""), "saved.img");
    EXPECT_EQ(kv_count(state.get()), 1u);

    EXPECT_EQ(vm_remove_state(vm.get()), 0);
    EXPECT_FALSE(fs::exists(absolute) || fs::exists(dir / "state.yaml"));
    EXPECT_EQ(queue(), "saved.img\n");
    EXPECT_EQ(read_file(dir / "config.yaml"), "name: a\n");

    // A configuration as we would not write it shows that it is not rewritten without need.
    write_file(dir / "config.yaml", "{ name:   a }");
    write_file(dir / "state.yaml", "not: [yaml");
    EXPECT_EQ(vm_remove_state(vm.get()), 0);
    EXPECT_EQ(read_file(dir / "config.yaml"), "{ name:   a }");
    EXPECT_FALSE(fs::exists(dir / "state.yaml"));
}
