#include "vdsk/vdsk.h"

#include "platform/child.h"
#include "tests/support/scratch.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <vector>

#include <sys/stat.h>

namespace {
namespace fs = std::filesystem;
using Disk = std::unique_ptr<vdsk, decltype(&vdsk_close)>;

// Runs a tool of QEMU to its end.
void run(std::vector<std::string> arguments)
{
    Child tool;
    ASSERT_EQ(tool.start({.program = arguments[0], .arguments = arguments}), 0);
    ASSERT_EQ(wait_child(tool.release()), 0)
        << arguments[0] << " " << arguments[1] << " " << arguments.back();
}

class Vdsk : public testing::Test
{
protected:
    std::string at(const std::string &name) const { return m_scratch.path(name); }
    void write(const std::string &name, const std::string &bytes) const
    {
        m_scratch.write(name, bytes);
    }

    void image(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), m_tool);
        run(std::move(arguments));
    }
    void io(const std::string &name, const std::string &command) const
    {
        run({"/usr/bin/qemu-io", "-f", "qcow2", "-c", command, at(name)});
    }

    // Both answers to what an image holds: ours, and what QEMU makes of it.
    void expectSameAsQemu(const std::string &name) const
    {
        image({"convert", "-f", "qcow2", "-O", "raw", at(name), at("expected.raw")});
        const std::string expected = m_scratch.read("expected.raw");
        const Disk disk(vdsk_open(at(name).c_str()), vdsk_close);
        ASSERT_TRUE(disk) << vdsk_error();
        ASSERT_EQ(vdsk_sectors(disk.get()), expected.size() / 512);
        std::string found(expected.size(), '?');
        // 300 sectors at a time cross the borders of clusters of every size.
        for (size_t first = 0; first < found.size() / 512; first += 300) {
            const size_t count = std::min<size_t>(300, found.size() / 512 - first);
            ASSERT_EQ(vdsk_read(disk.get(), &found[first * 512], first, 300),
                      static_cast<ssize_t>(count))
                << vdsk_error();
        }
        EXPECT_TRUE(found == expected) << name;
    }

    void expectRefused(const std::string &name, int error, const std::string &message) const
    {
        errno = 0;
        EXPECT_FALSE(Disk(vdsk_open(at(name).c_str()), vdsk_close)) << name;
        EXPECT_EQ(errno, error) << name;
        const std::string reason = vdsk_error();
        EXPECT_EQ(reason.find(at(name) + ": "), 0u) << reason;
        EXPECT_NE(reason.find(message), std::string::npos) << reason;
    }

    const std::string m_tool = "/usr/bin/qemu-img";
    const ScratchDirectory m_scratch;
};

// Cases that need images made by QEMU.
class VdskQemu : public Vdsk
{
protected:
    void SetUp() override
    {
        if (access(m_tool.c_str(), X_OK) != 0)
            GTEST_SKIP() << m_tool << " is not installed";
    }
};

TEST_F(Vdsk, readsARawImageAndItsPartialLastSector)
{
    write("disk.raw", std::string(512, 'a') + std::string(512, 'b') + "end");
    const Disk disk(vdsk_open(at("disk.raw").c_str()), vdsk_close);
    ASSERT_TRUE(disk) << vdsk_error();
    EXPECT_EQ(vdsk_sectorsize(disk.get()), 512u);
    EXPECT_EQ(vdsk_sectors(disk.get()), 3u);
    std::string found(5 * 512, '?');
    EXPECT_EQ(vdsk_read(disk.get(), found.data(), 1, 5), 2);
    EXPECT_EQ(found.substr(0, 1024), std::string(512, 'b') + "end" + std::string(509, '\0'));
    EXPECT_EQ(found.substr(1024), std::string(3 * 512, '?'));
    EXPECT_EQ(vdsk_read(disk.get(), found.data(), 3, 1), 0);
    EXPECT_EQ(vdsk_read(disk.get(), found.data(), UINT64_MAX, SIZE_MAX), 0);
}

TEST_F(Vdsk, refusesWhatIsNoImage)
{
    expectRefused("nothing", ENOENT, "No such file");
    fs::create_directory(at("directory"));
    expectRefused("directory", EINVAL, "not a file");
    mkfifo(at("fifo").c_str(), 0600);
    expectRefused("fifo", EINVAL, "not a file");
    write("empty", "");
    expectRefused("empty", EINVAL, "empty");
    write("luks", "LUKS\xba\xbe");
    expectRefused("luks", EINVAL, "LUKS");
    write("cut.qcow2", "QFI\xfb" + std::string("\0\0\0\3", 4));
    expectRefused("cut.qcow2", EINVAL, "cut off");
    EXPECT_FALSE(vdsk_open(nullptr));
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(VdskQemu, readsQcow2AsQemuDoes)
{
    std::string content;
    for (int sector = 0; sector < 3000; ++sector)
        content += std::string(512, static_cast<char>(sector % 7 ? sector : 0));
    write("content.raw", content + std::string(1 << 20, '\0') + content);
    const std::vector<std::vector<std::string>> forms = {{},
                                                         {"-c"},
                                                         {"-o", "compat=0.10"},
                                                         {"-o", "cluster_size=512"},
                                                         {"-o", "cluster_size=2M"},
                                                         {"-o", "preallocation=metadata"}};
    for (const auto &form : forms) {
        std::vector<std::string> arguments = {"convert", "-f", "raw", "-O", "qcow2"};
        arguments.insert(arguments.end(), form.begin(), form.end());
        arguments.insert(arguments.end(), {at("content.raw"), at("disk.qcow2")});
        image(arguments);
        SCOPED_TRACE(testing::PrintToString(form));
        expectSameAsQemu("disk.qcow2");
    }
}

TEST_F(VdskQemu, readsAbsentRangesFromTheChainOfBases)
{
    fs::create_directory(at("bases"));
    // A raw base whose guest wrote the magic of another format, shorter than what stands on it.
    write("bases/base.raw", "QFI\xfb" + std::string(700000, 'r'));
    image({"create", "-q", "-f", "qcow2", "-F", "raw", "-b", "base.raw", at("bases/middle.qcow2"),
           "2M"});
    io("bases/middle.qcow2", "write -P 0x6d 128k 100k");
    image({"create", "-q", "-f", "qcow2", "-F", "qcow2", "-b", "bases/middle.qcow2",
           at("top.qcow2"), "3M"});
    io("top.qcow2", "write -P 0x74 192k 64k");
    io("top.qcow2", "write -z 0 64k");
    expectSameAsQemu("top.qcow2");
}

TEST_F(VdskQemu, refusesAChainThatIsBroken)
{
    const auto create = [&](const std::string &name, const std::string &base) {
        image({"create", "-q", "-u", "-f", "qcow2", "-F", "qcow2", "-b", base, at(name), "1M"});
    };
    create("orphan.qcow2", "gone.qcow2");
    expectRefused("orphan.qcow2", ENOENT, at("gone.qcow2") + ": No such file");
    create("self.qcow2", "self.qcow2");
    expectRefused("self.qcow2", EINVAL, "stands on itself");
    create("a.qcow2", "b.qcow2");
    create("b.qcow2", "file:a.qcow2");
    expectRefused("b.qcow2", EINVAL, "base image");
    create("remote.qcow2", "nbd://host/disk");
    expectRefused("remote.qcow2", EINVAL, "not a file");
    image({"create", "-q", "-f", "vmdk", at("base.vmdk"), "1M"});
    create("foreign.qcow2", "base.vmdk");
    expectRefused("foreign.qcow2", EINVAL, "VMDK");
}

TEST_F(VdskQemu, refusesOtherFormatsByName)
{
    const char *formats[][2] = {{"vmdk", "VMDK"},
                                {"vdi", "VDI"},
                                {"vhdx", "VHDX"},
                                {"vpc", "VHD"},
                                {"qed", "QED"},
                                {"qcow", "qcow (version 1)"},
                                {"parallels", "Parallels"}};
    for (const auto &[format, name] : formats) {
        const std::string file = std::string("disk.") + format;
        image({"create", "-q", "-f", format, at(file), "8M"});
        expectRefused(file, EINVAL, name);
    }
}

TEST_F(VdskQemu, refusesADamagedQcow2)
{
    const std::pair<size_t, std::string> damages[] = {{7, "\x09"},
                                                      {23, "\x3f"},
                                                      {24, std::string(8, '\xff')},
                                                      {35, "\x01"},
                                                      {36, std::string(4, '\xff')},
                                                      {40, std::string(8, '\x7f')},
                                                      {79, "\x02"},
                                                      {79, "\x10"}};
    for (const auto &[offset, bytes] : damages) {
        image({"create", "-q", "-f", "qcow2", at("disk.qcow2"), "1M"});
        write("disk.qcow2", m_scratch.read("disk.qcow2").replace(offset, bytes.size(), bytes));
        expectRefused("disk.qcow2", EINVAL, "");
    }
    image({"create", "-q", "-f", "qcow2", at("disk.qcow2"), "1M"});
    io("disk.qcow2", "write -P 1 0 64k");
    fs::resize_file(at("disk.qcow2"), fs::file_size(at("disk.qcow2")) - 65536);
    std::string sector(512, '?');
    const Disk disk(vdsk_open(at("disk.qcow2").c_str()), vdsk_close);
    if (disk) {
        EXPECT_EQ(vdsk_read(disk.get(), sector.data(), 0, 1), -1);
    }
}
} // namespace
