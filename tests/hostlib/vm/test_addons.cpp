#include "hostlib/vm/addons.h"

#include "hostlib/vm/owners.h"
#include "hostlib/vm/vm.h"
#include "policy/owners.h"
#include "tests/hostlib/vm/home.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace {

// A boot sector with a version record; `build` is its 8 bytes.
std::string boot_sector(const std::string &build, char compat)
{
    using namespace std::string_literals;
    std::string sector(512, '\0');
    sector.replace(364, 24, "TVER\x03\x04\x01\x02"s + build + std::string(7, '\0') + compat);
    sector.replace(510, 2, "\x55\xAA");
    return sector;
}

class Addons : public testing::Test
{
protected:
    Addons()
    {
        Home::get().clear();
        write_file(Home::get().vms / "a" / "config.yaml", "hard_drives: [{file: a.img}]\n");
        vm.reset(vm_open((Home::get().vms / "a").c_str()));
        vm_setid(vm.get(), "a");
    }
    std::string version() const
    {
        const KvOwner node(vm_read_addons_version(vm.get()));
        return kv_str(node.get(), "none");
    }

    VmOwner vm;
    const std::string image = Home::get().images / "a.img";
};

} // namespace

TEST_F(Addons, areFoundInTheFirstPlaceThatKnowsThem)
{
    Home &home = Home::get();
    write_file(image, boot_sector(std::string("\0\0\0\x05\0\0\0\0", 8), 10));
    home.setTool("tarv_image_maker_executable", "exit 3");
    EXPECT_EQ(version(), "3.4.258.5");
    EXPECT_NE(home.takeLog().find("vm: a: read version: tool exit status 3\r\n"),
              std::string::npos);

    home.setTool("tarv_image_maker_executable",
                 R"(printf '%s|' "$@" > "$0.args"; printf '2.5.1 release\nmore\n')");
    EXPECT_EQ(version(), "2.5.1");
    EXPECT_EQ(read_file(home.dir / "tarv_image_maker_executable.args"),
              "apfs|cat|a.img|Data|Library/Application Support/Quelda/Tarv/addons/version.txt|");

    home.setTool("fvutil_executable", R"(test "$*" = "nvram tarv,addons-version" || exit 1
                                         printf ' 1.9 (12) \nmore\n')");
    EXPECT_EQ(version(), "1.9");

    write_file(home.vms / "a" / "config.yaml", "name: a\n");
    home.setTool("fvutil_executable", "exit 1");
    home.takeLog();
    EXPECT_EQ(version(), "none");
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(home.takeLog(), "vm: fvutil exit status 1\r\nvm: a: no hard drives configured\r\n");
}

TEST_F(Addons, versionOfTheDiskIsCutAt63Bytes)
{
    Home::get().setTool("tarv_image_maker_executable", "printf '" + std::string(70, '7') + "\\n'");
    EXPECT_EQ(version(), std::string(63, '7'));
}

TEST_F(Addons, firmwareVariablesAreSetAndRemoved)
{
    EXPECT_EQ(vm_write_nvram(vm.get(), "n", "v"), -1);
    EXPECT_EQ(errno, ENOEXEC);
    EXPECT_EQ(Home::get().takeLog(), "vm: fvutil not configured\r\n");
    Home::get().setTool("fvutil_executable", R"(printf '%s|' "$@" >> "$0.args")");
    EXPECT_EQ(vm_write_nvram(vm.get(), "n", "v w"), 0);
    EXPECT_EQ(vm_write_nvram(vm.get(), "n", nullptr), 0);
    EXPECT_EQ(read_file(Home::get().dir / "fvutil_executable.args"), "nvram|n|v w|-d|nvram|n|");
    Home::get().setTool("fvutil_executable", "exit 3");
    EXPECT_EQ(vm_write_nvram(vm.get(), "n", "v"), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(Home::get().takeLog(), "vm: failed to set nvram variable n: error 3\r\n");
}

TEST_F(Addons, recordIsDecodedAndChecked)
{
    write_file(image, boot_sector(std::string("\x80\0\0\x05\xFF\0\0\x07", 8), 10));
    const KvOwner record(pyver_read(image.c_str()));
    EXPECT_STREQ(kv_get_str(record.get(), "version", ""), "3.4.258.2147483653.4278190087");
    EXPECT_EQ(kv_get_int(record.get(), "build", 0), static_cast<int64_t>(0x80000005FF000007));
    EXPECT_EQ(kv_get_int(record.get(), "match", 0), 1);
    write_file(image, boot_sector(std::string(8, '\0'), 11));
    const KvOwner other(pyver_read(image.c_str()));
    EXPECT_EQ(kv_get_int(other.get(), "match", 1), 0);
    EXPECT_EQ(kv_get_int(other.get(), "compat", 0), 11);

    std::string no_record = boot_sector("12345678", 10), no_boot = no_record;
    no_record[364] = 't';
    no_boot[511] = 0;
    const std::string large =
        no_record + std::string(4096 - 512, 0) + "EFI PART" + std::string(36856, 0);
    for (const std::string &bytes : {no_record, no_boot, large, std::string(511, 'x')}) {
        write_file(image, bytes);
        EXPECT_EQ(pyver_read(image.c_str()), nullptr);
    }
    EXPECT_EQ(pyver_read("/nonexistent"), nullptr);
    EXPECT_EQ(Home::get().takeLog(), "pyver: disk contains no version information\r\n"
                                     "pyver: disk contains no MBR partitions\r\n"
                                     "pyver: sector size != 512\r\n"
                                     "pyver: failed to read MBR\r\n"
                                     "pyver: failed to open /nonexistent\r\n");
}

TEST_F(Addons, firmwareVariablesAreReadInListingOrder)
{
    EXPECT_EQ(vm_read_nvram(vm.get(), nullptr), nullptr);
    Home::get().setTool("fvutil_executable", R"(test -f config.yaml || exit 9
        if [ "$1" = -a ]; then printf '1 g 4 b\nshort line\n  1 g 3 a x \n\n1 g 2 gone\n'
        elif [ "$2" = gone ]; then true
        else echo "  value of $2  "; fi)");
    const KvOwner values(vm_read_nvram(vm.get(), nullptr));
    ASSERT_EQ(kv_count(values.get()), 2u);
    EXPECT_STREQ(kv_str(kv_first(values.get()), ""), "value of b");
    EXPECT_STREQ(kv_str(kv_next(kv_first(values.get())), ""), "value of a x");
    EXPECT_EQ(vm_read_nvram(vm.get(), "gone"), nullptr);

    Home::get().setTool("fvutil_executable", "exit 4");
    Home::get().takeLog();
    EXPECT_EQ(vm_read_nvram(vm.get(), nullptr), nullptr);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(Home::get().takeLog(), "vm: fvutil exit status 4\r\n");
}
