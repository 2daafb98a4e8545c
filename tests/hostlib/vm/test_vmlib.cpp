#include "hostlib/vm/vmlib.h"

#include "hostlib/config/config.h"
#include "hostlib/vm/owners.h"
#include "tests/hostlib/vm/home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>

namespace fs = std::filesystem;
using testing::UnorderedElementsAre;

namespace {

using Library = std::unique_ptr<vmlib, decltype(&vmlib_close)>;

class Vmlib : public testing::Test
{
protected:
    Vmlib() { Home::get().clear(); }

    std::set<std::string> list() const
    {
        std::set<std::string> ids;
        vmlib_reset(lib.get());
        while (const char *id = vmlib_next(lib.get()))
            ids.insert(id);
        return ids;
    }
    std::string find(const char *what, const char *tag = nullptr) const
    {
        const VmOwner vm(vmlib_lookup(lib.get(), what, tag));
        const char *id = vm_getid(vm.get()), *of = vm_gettag(vm.get());
        return (id ? id : "none") + (of ? std::string("/") + of : std::string());
    }

    const fs::path dir = Home::get().vms;
    const Library lib{vmlib_open(nullptr), vmlib_close};
};

} // namespace

TEST_F(Vmlib, listsAndPurgesByDifferentRules)
{
    write_file(dir / "a" / "config.yaml", "");
    write_file(dir / "b" / "b.yaml", "");
    write_file(dir / "c" / "localversion", "1");
    write_file(dir / "d" / "other.yaml", "");
    write_file(dir / ".e" / "config.yaml", "");
    write_file(dir / ".f" / "x", "");
    write_file(dir / "g", "");
    fs::create_directories(dir / "h" / "config.yaml");
    fs::create_directory_symlink("a", dir / "i");
    fs::create_directories(dir / "j");
    fs::create_symlink(dir / "a" / "config.yaml", dir / "j" / "config.yaml");
    EXPECT_THAT(list(), UnorderedElementsAre("a", "b", "c", ".e", "j"));
    EXPECT_EQ(vmlib_purge(lib.get()), 0);
    std::set<std::string> left;
    for (const fs::directory_entry &entry : fs::directory_iterator(dir))
        left.insert(entry.path().filename());
    EXPECT_THAT(left, UnorderedElementsAre("a", "b", ".e", ".f", "g", "h", "i", "j"));
    EXPECT_EQ(Home::get().takeLog(), "");
}

TEST_F(Vmlib, findsByIdentifierOfAnyCaseAndByExactName)
{
    const std::string id = "0b7e4c5e-4a53-4f0c-9d3e-6c1b7a2f9e01";
    write_file(dir / id / "config.yaml", "name: first vm\n");
    write_file(dir / id / "1.0" / (id + ".yaml"), "");
    write_file(dir / id / "1.1" / "1.1.yaml", "");
    write_file(dir / "broken" / "config.yaml", "[");
    write_file(dir / "nameless" / "config.yaml", "");
    fs::create_directory(dir / "plain");

    EXPECT_EQ(find("0B7E4C5E-4A53-4f0c-9d3e-6c1b7a2f9e01"), id);
    EXPECT_EQ(find("first vm"), id);
    EXPECT_EQ(find("First VM"), "none");
    EXPECT_EQ(find("broken"), "broken");
    EXPECT_EQ(find(""), "nameless");
    EXPECT_EQ(find("plain"), "none");
    EXPECT_EQ(find(nullptr), "none");
    EXPECT_EQ(find("first vm", "1.0"), id + "/1.0");
    EXPECT_EQ(find(id.c_str(), "1.1"), "none");

    EXPECT_STREQ(vmlib_lookupid(lib.get(), "plain"), "plain");
    EXPECT_STREQ(vmlib_lookupid(lib.get(), "BROKEN"), "broken");
    EXPECT_STREQ(vmlib_lookupid(lib.get(), "first vm"), id.c_str());
    EXPECT_EQ(vmlib_lookupid(lib.get(), "none"), nullptr);

    EXPECT_STREQ(vmlib_tag_first(lib.get(), id.c_str()), "1.0");
    EXPECT_EQ(vmlib_tag_next(nullptr, id.c_str()), nullptr);
    Home::get().takeLog();
    EXPECT_EQ(vmlib_tag_first(lib.get(), "none"), nullptr);
    EXPECT_EQ(Home::get().takeLog(), "vmlib: none: failed to open: No such file or directory\r\n");
}

TEST_F(Vmlib, makesAVmOrOpensTheOneThatIsThere)
{
    umask(022);
    const auto mode = [&](const std::string &name) {
        return unsigned(fs::status(dir / name).permissions());
    };
    const VmOwner random(vmlib_create(lib.get(), nullptr, nullptr));
    const std::string id = vm_getid(random.get());
    EXPECT_THAT(id, testing::MatchesRegex("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}"));
    EXPECT_EQ(mode(id), 0755u);
    EXPECT_THAT(list(), testing::IsEmpty()) << "nothing is in it yet";
    write_file(dir / id / "config.yaml", "name: kept\n");
    const VmOwner again(vmlib_create(lib.get(), id.c_str(), nullptr));
    EXPECT_EQ(find("kept"), id);
    const VmOwner tagged(vmlib_create(lib.get(), id.c_str(), "1.0"));
    EXPECT_STREQ(vm_gettag(tagged.get()), "1.0");
    EXPECT_EQ(mode(id + "/1.0"), 0755u);
    EXPECT_EQ(vmlib_create(lib.get(), nullptr, "1.0"), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(vmlib_vm_dir(lib.get(), id.c_str()), (dir / id).string());

    // A version whose name begins with a dot is none.
    write_file(dir / id / ".hidden" / "config.yaml", "");
    write_file(dir / id / "1.0" / "config.yaml", "");
    std::set<std::string> tags;
    for (const char *tag = vmlib_tag_first(lib.get(), id.c_str()); tag;
         tag = vmlib_tag_next(lib.get(), id.c_str()))
        tags.insert(tag);
    EXPECT_THAT(tags, UnorderedElementsAre("1.0"));
}

TEST_F(Vmlib, deletesWithTheResultThatLogsGive)
{
    const fs::path queue = Home::get().images / ".removal-queue";
    write_file(dir / "a" / "1.0" / "config.yaml", "");
    write_file(Home::get().logs / "a.log", "");
    write_file(Home::get().logs / "a.console.log", "");
    EXPECT_EQ(vmlib_delete(lib.get(), "b", nullptr), -1);
    EXPECT_FALSE(fs::exists(queue));
    EXPECT_EQ(vmlib_delete(lib.get(), "", nullptr), -1);
    // What is no single name leads elsewhere.
    for (const char *id : {"..", ".", "./", "a/..", "a/", "/", "a/1.0/../.."})
        EXPECT_EQ(vmlib_delete(lib.get(), id, nullptr), -1) << id;
    for (const char *tag : {"", ".", "..", "../b", "1.0/..", "1.0/../../a"})
        EXPECT_EQ(vmlib_delete(lib.get(), "a", tag), -1) << tag;
    EXPECT_TRUE(fs::exists(dir / "a" / "1.0" / "config.yaml"));

    config_find("delete_logs")->value[0] = '1';
    EXPECT_EQ(vmlib_delete(lib.get(), "a", "1.0"), 0);
    EXPECT_EQ(read_file(queue), "<stb>\n");
    EXPECT_TRUE(fs::exists(dir / "a") && fs::exists(Home::get().logs / "a.log"));
    const int length = static_cast<int>(Home::get().logs.string().size());
    EXPECT_EQ(vmlib_delete(lib.get(), "a", nullptr), length);
    EXPECT_FALSE(fs::exists(dir / "a") || fs::exists(Home::get().logs / "a.log") ||
                 fs::exists(Home::get().logs / "a.console.log"));
    EXPECT_EQ(vmlib_delete(lib.get(), "a", nullptr), length);
}
