// The supervisor with a real QEMU: screens, keys, the ends of either, suspending, bad input.
#include "services/bounds.h"
#include "tests/guest/guests.h"
#include "tests/services/tarvvm/live_vm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sysexits.h>

using testing::HasSubstr;

namespace {

bool showsBars(const LiveViewer &viewer, guest_size size)
{
    if (viewer.width() != uint32_t(size.width) || viewer.height() != uint32_t(size.height))
        return false;
    for (int y = 0; y < size.height - GUEST_BLOCK_SIZE * GUEST_BLOCK_ROWS; y++)
        for (int x = 0; x < size.width; x++)
            if (viewer.at(uint32_t(x), uint32_t(y)) != guest_bar_colour(size.width, x))
                return false;
    return true;
}

bool showsBlock(const LiveViewer &viewer, guest_size size, uint8_t code, int count)
{
    return viewer.at(uint32_t(guest_block_x(size, count)), uint32_t(guest_block_y(size, count))) ==
           guest_block_colour(code, count);
}

TEST(Live, textModeComesWholeThoughNoScanoutAnnouncesIt)
{
    LiveVm vm("text");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer viewer(vm);
    EXPECT_TRUE(viewer.shows([&] {
        if (viewer.width() != uint32_t(GUEST_TEXT_SIZE.width) ||
            viewer.height() != uint32_t(GUEST_TEXT_SIZE.height))
            return false;
        for (int row = 0; row < GUEST_TEXT_ROWS; row++)
            if (viewer.at(719, uint32_t(row * GUEST_TEXT_ROW_HEIGHT + 8)) !=
                GUEST_TEXT_BACKGROUNDS[row % 8])
                return false;
        return true;
    }));
}

TEST(Live, rudeViewerLosesItsConnectionAndNobodyElse)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer polite(vm);
    LiveViewer rude(vm);
    rude.send(12345, {});
    EXPECT_TRUE(wait_for([&] { return !rude.take(); }));
    EXPECT_EQ(rude.closedReason(), DISPLAY_CLOSE_REFUSED);
    EXPECT_TRUE(polite.shows([&] { return showsBars(polite, GUEST_BARS_SIZE); }));
    EXPECT_THAT(vm.ask("display\r\n{\"index\":4}").message(), HasSubstr("no such screen"));
    EXPECT_THAT(vm.ask("dance\r\n").message(), HasSubstr("unknown command \"dance\""));
    EXPECT_EQ(vm.ask("reboot\r\n").status(), "OK");
}

TEST(Live, stopAsksAndOnlyForceEnds)
{
    LiveVm vm("bars"); // its guest never hears the power button
    vm.home().set("stop_wait", "1");
    ASSERT_TRUE(vm.startAndRun());
    const LiveAnswer asked = vm.ask("stop\r\n");
    EXPECT_EQ(
        asked.message(),
        "the guest did not power off within 1 s; it runs on. Force Stop (stop --force) ends it");
    EXPECT_EQ(json_find_int64(asked.tree.get(), "error", 0), ETIMEDOUT);
    EXPECT_EQ(vm.state(), "running");
    EXPECT_THAT(vm.log(), HasSubstr("asking the guest to power off"));
    EXPECT_EQ(vm.log().find("stopping: "), std::string::npos) << "no rung is for who only asks";
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_THAT(vm.log(), HasSubstr("telling the engine to quit"));
    ASSERT_TRUE(vm.startAndRun());
    // An engine that hears nothing any more is killed in the end.
    const pid_t engine = pid_t(vm.status("engine_pid"));
    kill(engine, SIGSTOP);
    kill(vm.pid(), SIGINT);
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_THAT(vm.log(), HasSubstr("killing the engine"));
}

// A session that ends sends SIGTERM to all its processes, to QEMU too.
TEST(Live, endOfTheSessionSuspendsUnlessTheSettingSaysOtherwise)
{
    for (const char *setting : {"", "force"}) {
        SCOPED_TRACE(setting);
        LiveVm vm("bars");
        if (*setting)
            vm.home().set("at_logout", setting);
        ASSERT_TRUE(vm.startAndRun());
        kill(pid_t(vm.status("engine_pid")), SIGTERM);
        kill(vm.pid(), SIGTERM);
        EXPECT_EQ(vm.wait(), 0);
        EXPECT_EQ(vm.config().find("state_file: ") != std::string::npos, !*setting);
    }
    // A job that is removed ends: nobody asked for a saved state.
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    sigval removed = {};
    removed.sival_int = JOB_REMOVED;
    sigqueue(vm.pid(), SIGTERM, removed);
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_EQ(vm.config().find("state_file: "), std::string::npos);
}

TEST(Live, socketThatIsRemovedIsMadeAgain)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    for (int round = 0; round < 3; round++) {
        std::filesystem::remove(vm_socket(vm.id()));
        EXPECT_TRUE(wait_for([&] { return vm.state() == "running"; }));
    }
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_FALSE(vm.socketExists());
}

TEST(Live, engineHasNoRightsToSpare)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    const std::string status =
        file_text("/proc/" + std::to_string(vm.status("engine_pid")) + "/status");
    EXPECT_THAT(status, HasSubstr("Seccomp:\t2"));
    EXPECT_THAT(status, HasSubstr("NoNewPrivs:\t1"));
}

TEST(Live, suspendedGuestGoesOnWhereItWas)
{
    LiveVm vm("bars", "network:\n- {mode: disconnected}\n- {controller: virtio-net}\n");
    ASSERT_TRUE(vm.startAndRun());
    {
        LiveViewer viewer(vm);
        ASSERT_TRUE(viewer.shows([&] { return showsBars(viewer, GUEST_BARS_SIZE); }));
        viewer.key(0x1e, true);
        viewer.key(0x1e, false);
        ASSERT_TRUE(viewer.shows([&] { return showsBlock(viewer, GUEST_BARS_SIZE, 0x9e, 1); }));
        EXPECT_EQ(vm.ask("suspend\r\n").status(), "OK");
    }
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_THAT(vm.config(), HasSubstr("state_file: " + vm.id()));
    ASSERT_TRUE(vm.startAndRun());
    EXPECT_TRUE(wait_for([&] { return vm.config().find("state_file") == std::string::npos; }));
    LiveViewer viewer(vm);
    EXPECT_TRUE(viewer.shows([&] {
        return showsBars(viewer, GUEST_BARS_SIZE) && showsBlock(viewer, GUEST_BARS_SIZE, 0x1e, 0);
    }));
    viewer.key(0x30, true);
    EXPECT_TRUE(viewer.shows([&] { return showsBlock(viewer, GUEST_BARS_SIZE, 0x30, 2); }));
}

TEST(Live, badInputIsNamedAndNothingStays)
{
    struct Case
    {
        const char *config, *key, *value;
        int status;
        const char *message;
    };
    const Case cases[] = {
        {"", "qemu_executable", "/nowhere/qemu", EX_UNAVAILABLE,
         "QEMU (setting qemu_executable) /nowhere/qemu: No such file"},
        {"", "qemu_executable", "/bin/false", EX_SOFTWARE, "the engine ended with status 1"},
        {"cdrom: missing.iso\n", "", "", EX_UNAVAILABLE, "cdrom: image "},
        {"- no: [yaml\n", "", "", EX_CONFIG, "config.yaml: line "},
        {"firmware: coreboot\n", "", "", EX_CONFIG, "config.yaml: firmware: \"coreboot\""},
        {"firmware: uefi\n", "uefi_code", "/nowhere/code", EX_UNAVAILABLE,
         "firmware (setting uefi_code) /nowhere/code"},
        {"network:\n- {mode: bridge, bridge: tarv-none}\n", "", "", EX_UNAVAILABLE,
         "network mode bridge: "},
        {"", "engine_accel", "fast", EX_UNAVAILABLE, "engine_accel: \"fast\""},
    };
    for (const Case &each : cases) {
        LiveVm vm("bars", each.config);
        if (*each.key)
            vm.home().set(each.key, each.value);
        vm.start();
        EXPECT_EQ(vm.wait(), each.status) << each.message;
        EXPECT_THAT(vm.report(), HasSubstr("\"status\":" + std::to_string(each.status)));
        EXPECT_THAT(vm.log(), HasSubstr(each.message));
        EXPECT_FALSE(vm.socketExists());
    }
    LiveVm no_disk("nothing");
    no_disk.start();
    EXPECT_EQ(no_disk.wait(), EX_UNAVAILABLE);
    EXPECT_THAT(no_disk.report(), HasSubstr("hard_drives[0].file: disk image "));
}

} // namespace
