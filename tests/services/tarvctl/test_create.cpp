#include "tests/services/tarvctl/controller_home.h"

#include <csignal>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class CreateTest : public ControllerTest
{
protected:
    // An ISO 9660 image, with a boot catalog for the given platforms.
    void make_disc(const std::string &path, const std::vector<unsigned char> &platforms)
    {
        constexpr size_t volume = 16 * 2048, boot = 17 * 2048, end = 18 * 2048, catalog = 19 * 2048;
        std::string disc(20 * 2048, '\0');
        disc.replace(volume, 7, "\1CD001\1");
        disc.replace(volume + 8, 64, 64, ' ');
        disc.replace(volume + 40, 21, "Debian 11.5.0 amd64 n");
        disc[volume + 80] = disc[volume + 87] = 20;  // blocks
        disc[volume + 129] = disc[volume + 130] = 8; // bytes of a block: 2048
        disc.replace(volume + 190, 512, 512, ' ');
        disc.replace(boot, 7, std::string("\0CD001\1", 7));
        disc.replace(boot + 7, 23,
                     "EL TORITO SPECIF"
                     "ICATION");
        disc[boot + 0x47] = 19;
        disc.replace(end, 7, "\377CD001\1");
        disc[catalog] = 1;
        for (size_t index = 0; index < platforms.size(); ++index) {
            const size_t entry = catalog + (index == 0 ? 0 : 64 * index);
            disc[entry] = index == 0 ? '\1' : '\x91';
            disc[entry + 1] = static_cast<char>(platforms[index]);
            disc[entry + 2] = index == 0 ? '\0' : '\1';
        }
        std::ofstream(path, std::ios::binary) << disc;
    }
    Json create_with(const std::vector<std::string> &options, const std::string &source)
    {
        std::vector<std::string> arguments = {"create"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"vm", source});
        return ctl(arguments);
    }
    Json shown(const std::string &vm = "vm") { return ctl({"show", vm})["body"]["configuration"]; }
    ProgramResult qemu_img(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "/usr/bin/qemu-img");
        return m_home.run(arguments);
    }
    Json image_info(const std::string &image)
    {
        return Json::parse(qemu_img({"info", "--output=json", m_home.file("images/" + image)}).out);
    }
};

// Whatever the umask of whoever made them; doctor closes what is open and says so.
TEST_F(CreateTest, doctorClosesWhatOthersCanRead)
{
    const std::string id = create("vm"), disk = "images/" + id + "-disk0.qcow2";
    chmod(m_home.file("vms/" + id).c_str(), 0755);
    chmod(m_home.file(disk).c_str(), 0644);
    EXPECT_THAT(ctl({"doctor"})["body"].dump(), HasSubstr("could be read by other users"));
    EXPECT_EQ(mode_of("vms/" + id), 0700u);
    EXPECT_EQ(mode_of(disk), 0600u);
    EXPECT_THAT(ctl({"doctor"})["body"].dump(), HasSubstr("closed to other users"));
}

TEST_F(CreateTest, makesWhatTheFormAsksFor)
{
    make_disc(m_home.file("a disc.iso"), {0, 0xef});
    // The form's environment replaces everything else.
    m_home.environment["TARV_DISK_CONTROLLER"] = "virtio-blk";
    m_home.environment["TARV_NETWORK_MODE"] = "bridge";
    m_home.environment["TARV_NETWORK_CONTROLLER"] = "anet";
    m_home.environment["TARV_DEFAULT_USER"] = "jo";
    m_home.environment["TARV_CREATE_INTERACTIVE"] = "1";
    const Json made =
        create_with({"--ram-size", "536870912", "--disk-size", "10737418240", "--cpu-count", "3"},
                    "file://" + m_home.path() + "/a%20disc.iso");
    ASSERT_EQ(made["exit"], 0) << made;
    EXPECT_THAT(m_error, StartsWith("0%\n"));
    EXPECT_TRUE(m_error.ends_with("\n100%\n")) << m_error;
    const std::string id = made["body"]["id"];
    Json expected = Json::parse(R"({"name":"vm","cpu":{"count":3},"ram":{"size":536870912},
        "firmware":"bios","network":[{"mode":"bridge","controller":"anet"}],
        "displays":[{"width":1280,"height":800}],"default_user":"jo"})");
    expected["uuid"] = id;
    expected["hard_drives"] = {{{"file", id + "-disk0.qcow2"}, {"controller", "virtio-blk"}}};
    expected["cdrom"] = m_home.file("a disc.iso");
    Json record = shown();
    EXPECT_THAT(record["network"][0]["mac"].get<std::string>(), StartsWith("52:54:00:"));
    record["network"][0].erase("mac");
    EXPECT_THAT(record["machine"].get<std::string>(), StartsWith("pc-q35-"));
    record.erase("machine");
    EXPECT_EQ(mode_of("vms/" + id), 0700u);
    EXPECT_EQ(mode_of("vms/" + id + "/config.yaml"), 0600u);
    EXPECT_EQ(mode_of("images/" + id + "-disk0.qcow2"), 0600u);
    EXPECT_EQ(record, expected);
    EXPECT_THAT(names("vms"), ElementsAre(id));
    EXPECT_THAT(names("images"), ElementsAre(id + "-disk0.qcow2"));
    const Json again = create_with({}, m_home.file("a disc.iso"));
    EXPECT_EQ(again["exit"], 5);
    EXPECT_EQ(names("vms").size(), 1u);
}

TEST_F(CreateTest, takesTheFirmwareThatTheImageBootsWith)
{
    struct
    {
        std::vector<unsigned char> platforms;
        std::vector<std::string> options;
        std::string firmware;
    } cases[] = {{{0}, {}, "bios"},
                 {{0xef}, {}, "uefi"},
                 {{0, 0xef}, {}, "bios"},
                 {{0, 0xef}, {"--firmware", "uefi"}, "uefi"}};
    std::ofstream(m_home.file("code")) << "firmware";
    m_home.set("uefi_code", m_home.file("code"));
    for (const auto &expected : cases) {
        make_disc(m_home.file("x.iso"), expected.platforms);
        ASSERT_EQ(create_with(expected.options, m_home.file("x.iso"))["exit"], 0);
        EXPECT_EQ(shown()["firmware"], expected.firmware);
        ctl({"delete", "--yes", "vm"});
    }
    m_home.set("uefi_code", m_home.file("none"));
    EXPECT_THAT(
        create_with({"--firmware", "uefi"}, m_home.file("x.iso"))["message"].get<std::string>(),
        HasSubstr("UEFI firmware"));
}

TEST_F(CreateTest, copiesDiskImages)
{
    const std::string base = m_home.file("d.qcow2"), above = m_home.file("layer.qcow2");
    qemu_img({"create", "-f", "qcow2", base, "8M"});
    qemu_img({"create", "-f", "qcow2", "-b", base, "-F", "qcow2", above});
    ASSERT_EQ(create_with({"--disk-size", "16M"}, base)["exit"], 0);
    EXPECT_EQ(image_info(shown()["hard_drives"][0]["file"])["virtual-size"], 16 << 20);
    EXPECT_FALSE(shown().contains("cdrom"));
    const Json small = ctl({"create", "--disk-size", "4M", "x", base});
    EXPECT_EQ(small["exit"], 6);
    EXPECT_EQ(small["message"], "--disk-size: 4 MiB is less than the image's own 8 MiB");
    // One above another becomes one that stands alone; not when the other is from elsewhere.
    std::filesystem::create_directory(m_home.file("far"));
    std::filesystem::copy(above, m_home.file("far/layer.qcow2"));
    const Json layer = ctl({"create", "x", m_home.file("far/layer.qcow2")});
    EXPECT_THAT(layer["message"].get<std::string>(), HasSubstr("which is in another folder"));
    const Json alone = ctl({"create", "--disk-size", "8M", "x", above});
    EXPECT_EQ(alone["exit"], 0) << alone;
    std::filesystem::remove(base);
    EXPECT_EQ(ctl({"start", "x"})["exit"], 0) << "the base has no part in it";
}

TEST_F(CreateTest, refusesBadInputBeforeMakingAnything)
{
    std::ofstream(m_home.file("text.iso")) << "no disc";
    std::ofstream(m_home.file("text.txt")) << "no disk";
    std::ofstream(m_home.file("empty.img"));
    std::ofstream(m_home.file("torn.qcow2")) << "QFI\xfb" << std::string(200, 'x');
    std::ofstream(m_home.file("packed.img")) << "\x1f\x8b" << std::string(600, 'x');
    qemu_img({"create", "-f", "vmdk", m_home.file("foreign.img"), "4M"});
    qemu_img({"create", "-f", "qcow2", m_home.file("secret.qcow2"), "4M"});
    std::fstream(m_home.file("secret.qcow2"), std::ios::in | std::ios::out).seekp(35).put('\1');
    const std::string good = m_home.file("raw.img");
    struct
    {
        std::vector<std::string> arguments;
        std::string message;
    } cases[] = {
        {{"x", m_home.file("none.iso")}, "none.iso: No such file"},
        {{"x", m_home.path()}, "is not a file"},
        {{"x", m_home.file("text.iso")}, "is not a disc image"},
        {{"x", m_home.file("text.txt")}, "is neither an iso, an img nor a qcow2 image"},
        {{"x", m_home.file("empty.img")}, "is empty"},
        {{"x", m_home.file("torn.qcow2")}, "torn.qcow2: is "},
        {{"x", m_home.file("packed.img")}, "is packed by gzip; unpack it first"},
        {{"x", m_home.file("foreign.img")}, "is a vmdk image; qemu-img convert"},
        {{"x", m_home.file("secret.qcow2")}, "is encrypted"},
        {{"x", "file:///a%2"}, "IMAGE: file:///a%2: not a URL"},
        {{"x", "https://example.org/x.iso"}, "only files of this host"},
        {{"x", "file://elsewhere/x.iso"}, "not a file of this host"},
        {{"", good}, "NAME is required"},
        {{"a\nb", good}, "control character"},
        {{"--ram-size", "1K", "x", good}, "--ram-size: 1K is less than 16 MiB"},
        {{"--ram-size", "16M", "--firmware", "uefi", "x", good}, "64 MiB that UEFI needs"},
        {{"--ram-size", "0", "x", good}, "--ram-size: 0 is less"},
        {{"--disk-size", "12 parsecs", "x", good}, "--disk-size: \"12 parsecs\" is not"},
        {{"--disk-size", "99999999999T", "x", good}, "--disk-size: 99999999999T is more than"},
        {{"--cpu-count", "0", "x", good}, "--cpu-count: 0 is not between 1 and 255"},
        {{"--firmware", "coreboot", "x", good}, "--firmware: \"coreboot\""},
    };
    for (const auto &expected : cases) {
        std::vector<std::string> arguments = expected.arguments;
        arguments.insert(arguments.begin(), "create");
        const Json answer = ctl(arguments);
        EXPECT_THAT(answer["exit"].get<int>(), testing::AnyOf(2, 6)) << answer;
        EXPECT_THAT(answer["message"].get<std::string>(), HasSubstr(expected.message));
    }
    m_home.set("default_disk", "much");
    EXPECT_EQ(create_with({}, good)["message"],
              "setting default_disk: \"much\" is not a number of bytes");
    m_home.set("default_disk", "4M");
    m_home.environment["TARV_NETWORK_MODE"] = "pigeon";
    EXPECT_EQ(create_with({}, good)["message"],
              "TARV_NETWORK_MODE: \"pigeon\" is none of host, shared, bridge, disconnected");
    EXPECT_THAT(names("vms"), IsEmpty());
    EXPECT_THAT(names("images"), IsEmpty());
}

TEST_F(CreateTest, undoesWhatWasCancelled)
{
    // The image tool never ends, so that the signal comes in the middle.
    const std::string tool = m_home.file("tool");
    std::ofstream(tool) << "#!/bin/sh\n"
                           "echo part > \"$5\"\nexec sleep 1000\n";
    std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
    make_disc(m_home.file("x.iso"), {0});
    m_home.set("qemu_img_executable", tool);
    for (const int number : {SIGTERM, SIGINT}) {
        const pid_t pid = m_home.spawn(
            {TARVCTL_PROGRAM, "create", "--disk-size", "4M", "vm", m_home.file("x.iso")}, 2);
        ASSERT_TRUE(wait_for([&] { return !names("images").empty(); }));
        kill(pid, number);
        int state = 0;
        ASSERT_EQ(waitpid(pid, &state, 0), pid);
        EXPECT_EQ(WEXITSTATUS(state), 9);
        EXPECT_THAT(names("vms"), IsEmpty());
        EXPECT_THAT(names("images"), IsEmpty());
    }
}

TEST_F(CreateTest, finishesWhatWasKilledWhilePublishing)
{
    const std::string id = create("vm");
    const std::string directory = m_home.file("vms/" + id);
    std::filesystem::rename(directory + "/config.yaml", directory + "/config.new");
    EXPECT_EQ(status(id), "gone");
    create("other");
    EXPECT_EQ(status(id), "stopped");
}

// ---- clones -----------------------------------------------------------------------------------

TEST_F(CreateTest, clonesShareUntilBothAreGone)
{
    const std::string source = create("vm");
    std::ofstream(m_home.file("vms/" + source + "/nvram")) << "variables";
    const std::string base = source + "-disk0.qcow2";
    const Json made = ctl({"clone", source, "twin"});
    ASSERT_EQ(made["exit"], 0) << made;
    const std::string twin = made["body"]["id"];
    EXPECT_EQ(file_text(m_home.file("vms/" + twin + "/nvram")), "variables");
    const Json theirs = shown(), ours = shown(twin);
    EXPECT_NE(theirs["hard_drives"][0]["file"], base) << "the shared image is written by neither";
    EXPECT_NE(theirs["network"][0]["mac"], ours["network"][0]["mac"]);
    EXPECT_EQ(ours["uuid"], twin);
    for (const Json &record : {theirs, ours})
        EXPECT_EQ(image_info(record["hard_drives"][0]["file"])["backing-filename"], base);
    EXPECT_EQ(ctl({"delete", "--yes", source})["exit"], 0);
    EXPECT_TRUE(std::filesystem::exists(m_home.file("images/" + base)));
    EXPECT_EQ(qemu_img({"check", m_home.file("images/" + twin + "-disk0.qcow2")}).status, 0);
    EXPECT_EQ(ctl({"delete", "--yes", twin})["exit"], 0);
    EXPECT_THAT(names("images"), IsEmpty());
}

// A layer that somebody made by hand names its base as they liked.
TEST_F(CreateTest, keepsABaseThatIsNamedByItsPath)
{
    const std::string source = create("vm"), other = create("other");
    const std::string base = m_home.file("images/" + source + "-disk0.qcow2");
    const std::string layer = m_home.file("layer.qcow2");
    qemu_img({"create", "-f", "qcow2", "-F", "qcow2", "-b", base, layer});
    std::string text = record(other);
    const std::string file = other + "-disk0.qcow2";
    text.replace(text.find(file), file.size(), layer);
    std::ofstream(m_home.file("vms/" + other + "/config.yaml")) << text;
    EXPECT_EQ(ctl({"delete", "--yes", source})["exit"], 0);
    EXPECT_TRUE(std::filesystem::exists(base));
    EXPECT_EQ(ctl({"delete", "--yes", other})["exit"], 0);
    EXPECT_FALSE(std::filesystem::exists(base)) << "it was the controller's own";
    EXPECT_TRUE(std::filesystem::exists(layer));
}

TEST_F(CreateTest, clearsUpACloneThatWasKilledWhenItsSourceHadItsLayer)
{
    const std::string source = create("vm"), first = names("images").front();
    ASSERT_EQ(ctl({"clone", source, "twin"})["exit"], 0);
    const std::string twin = shown("twin")["uuid"];
    const std::string layer = shown()["hard_drives"][0]["file"];
    std::filesystem::rename(m_home.file("vms/" + twin), m_home.file("vms/.new-" + twin));
    std::filesystem::remove(m_home.file("vms/.new-" + twin + "/config.yaml"));
    const std::string other = create("other");
    EXPECT_THAT(names("images"),
                testing::UnorderedElementsAre(first, layer, other + "-disk0.qcow2"));
    EXPECT_THAT(names("vms"), testing::UnorderedElementsAre(source, other));
}

TEST_F(CreateTest, copiesStandAloneAndKeepTheSavedState)
{
    const std::string source = create("vm");
    ASSERT_EQ(ctl({"start", source})["exit"], 0);
    ASSERT_EQ(ctl({"suspend", source})["exit"], 0);
    const std::string before = record(source);
    const Json made = ctl({"clone", "--copy", source, "copy"});
    ASSERT_EQ(made["exit"], 0) << made;
    const std::string copy = made["body"]["id"];
    EXPECT_EQ(record(source), before);
    EXPECT_EQ(status(copy), "suspended");
    EXPECT_EQ(ctl({"delete", "--yes", source})["exit"], 0);
    EXPECT_EQ(file_text(m_home.file("images/" + copy + "-state")), "state");
    EXPECT_EQ(qemu_img({"check", m_home.file("images/" + copy + "-disk0.qcow2")}).status, 0);
    EXPECT_EQ(ctl({"modify", copy, "set", "ram.size", "128M"})["exit"], 4);
    EXPECT_EQ(ctl({"modify", copy, "set", "name", "renamed"})["exit"], 0);
}

TEST_F(CreateTest, deletesNoFileOfSomebodyElse)
{
    const std::string id = create("vm");
    std::string text = record(id);
    for (const char *name : {"mine.qcow2", "golden.qcow2"})
        std::ofstream(m_home.file(name)) << "precious";
    text += "state_file: ../mine.qcow2\n";
    const size_t drives = text.find("- file: ");
    text.insert(drives, "- file: " + m_home.file("golden.qcow2") + "\n");
    std::ofstream(m_home.file("vms/" + id + "/config.yaml")) << text;
    EXPECT_EQ(ctl({"delete", "--yes", id})["exit"], 0);
    EXPECT_TRUE(std::filesystem::exists(m_home.file("golden.qcow2")));
    EXPECT_TRUE(std::filesystem::exists(m_home.file("mine.qcow2")));
    EXPECT_THAT(names("images"), IsEmpty());
    for (const char *text_of_path : {".", "..", "../vms", "/"})
        EXPECT_EQ(ctl({"delete", "--yes", text_of_path})["exit"], 3);
    EXPECT_TRUE(std::filesystem::exists(m_home.file("vms")));
}

} // namespace
