// The supervisor with a real QEMU: screens, keys, the ends of either, suspending, bad input.
#include "platform/kvm.h"
#include "platform/process.h"
#include "tarvhv/cli2.h"
#include "tests/guest/guests.h"
#include "tests/tarvvm/live_vm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <sysexits.h>

using testing::HasSubstr;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr uint64_t SUPERVISOR_MEMORY = 1 << 30; // the sanitizer's own needs no bound
#else
constexpr uint64_t SUPERVISOR_MEMORY = 12 << 20;
#endif

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

TEST(Live, picturesArriveExactlyAndKeysChangeThem)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer second(vm);
    {
        LiveViewer viewer(vm);
        ASSERT_TRUE(viewer.connected());
        ASSERT_TRUE(viewer.shows([&] { return showsBars(viewer, GUEST_BARS_SIZE); }));
        viewer.key(0x1e, true);
        viewer.key(0x1e, false);
        viewer.key(0xc8, true); // the E0 key Up, held
        EXPECT_TRUE(viewer.shows([&] {
            return showsBlock(viewer, GUEST_BARS_SIZE, 0x1e, 0) &&
                   showsBlock(viewer, GUEST_BARS_SIZE, 0x9e, 1) &&
                   showsBlock(viewer, GUEST_BARS_SIZE, 0xe0, 2) &&
                   showsBlock(viewer, GUEST_BARS_SIZE, 0x48, 3);
        }));
    }
    EXPECT_TRUE(second.shows([&] { return showsBlock(second, GUEST_BARS_SIZE, 0xc8, 5); }))
        << "the key that the first viewer held is released with it";
    second.key(0x3e, true); // F4
    EXPECT_TRUE(second.shows([&] { return showsBars(second, GUEST_MODES[3]); }));
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    while (second.take())
        ;
    EXPECT_EQ(second.closedReason(), DISPLAY_CLOSE_STOPPED);
    EXPECT_FALSE(vm.socketExists());
    EXPECT_THAT(vm.report(), HasSubstr("\"status\":0"));
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

TEST(Live, viewerThatStopsReadingCostsNothingAndIsCurrentAtOnce)
{
    LiveVm vm("repaint20");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer viewer(vm);
    ASSERT_TRUE(viewer.shows([&] {
        return viewer.width() == uint32_t(GUEST_REPAINT_SIZE.width) && viewer.frameNumber() > 20;
    }));
    const pid_t engine = pid_t(vm.status("engine_pid"));
    const uint64_t engine_before = private_memory(engine);
    const uint64_t own_before = private_memory(vm.pid());
    // Not a packet is read while the guest paints on; the shared picture shows that it does.
    const int asleep_at = viewer.frameNumber();
    EXPECT_TRUE(wait_until([&] { return viewer.frameNumber() > asleep_at + 80; }));
    constexpr uint64_t margin = 20 << 20;
    EXPECT_LT(private_memory(engine), engine_before + margin);
    EXPECT_LT(private_memory(vm.pid()), own_before + margin);
    EXPECT_LT(private_memory(vm.pid()), SUPERVISOR_MEMORY);
    const int awake_at = viewer.frameNumber();
    viewer.take();
    EXPECT_LT(viewer.damagePackets(), 1000u);
    EXPECT_TRUE(viewer.shows([&] { return viewer.frameNumber() > awake_at + 5; }));

    // Nobody looks: the picture rests, and is whole again when somebody does.
    viewer.send(DISPLAY_ACTIVE, {0});
    const auto rests = [&] {
        const uint64_t frames = viewer.damagePackets();
        viewer.take();
        return frames == viewer.damagePackets();
    };
    EXPECT_TRUE(wait_until(rests));
    for (int i = 0; i < 5; i++) {
        viewer.send(DISPLAY_ACTIVE, {1});
        viewer.send(DISPLAY_ACTIVE, {0});
    }
    viewer.send(DISPLAY_ACTIVE, {1});
    const int then = viewer.frameNumber();
    EXPECT_TRUE(viewer.shows([&] { return viewer.frameNumber() > then + 5; }));
}

TEST(Live, rudeViewerLosesItsConnectionAndNobodyElse)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer polite(vm);
    LiveViewer rude(vm);
    rude.send(12345, {});
    EXPECT_TRUE(wait_until([&] { return !rude.take(); }));
    EXPECT_EQ(rude.closedReason(), DISPLAY_CLOSE_REFUSED);
    EXPECT_TRUE(polite.shows([&] { return showsBars(polite, GUEST_BARS_SIZE); }));
    EXPECT_THAT(vm.ask("display\r\n{\"index\":4}").message(), HasSubstr("no such screen"));
    EXPECT_THAT(vm.ask("dance\r\n").message(), HasSubstr("unknown command \"dance\""));
    EXPECT_EQ(vm.ask("reboot\r\n").status(), "OK");
}

TEST(Live, killedSupervisorTakesItsEngineAlongAndLeavesNoObstacle)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    const pid_t engine = pid_t(vm.status("engine_pid"));
    const uint64_t identity = platform_process_identity(engine);
    ASSERT_NE(identity, 0u);
    kill(vm.pid(), SIGKILL);
    EXPECT_EQ(vm.wait(), 128 + SIGKILL);
    EXPECT_TRUE(wait_until([&] { return platform_process_identity(engine) != identity; }));
    EXPECT_TRUE(vm.socketExists()) << "stale, and replaced by the next start";
    EXPECT_TRUE(vm.startAndRun());
}

TEST(Live, killedEngineEndsTheSupervisorWithAReport)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    kill(pid_t(vm.status("engine_pid")), SIGKILL);
    EXPECT_EQ(vm.wait(), EX_SOFTWARE);
    EXPECT_THAT(vm.report(), HasSubstr("the engine was killed by signal 9"));
    EXPECT_THAT(vm.report(), HasSubstr("\"status\":" + std::to_string(EX_SOFTWARE)));
    EXPECT_FALSE(vm.socketExists());
}

TEST(Live, stopAsksFirstAndForcesThen)
{
    LiveVm vm("bars"); // its guest never hears the power button
    ASSERT_TRUE(vm.startAndRun());
    EXPECT_EQ(vm.ask("stop\r\n").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_THAT(vm.log(), HasSubstr("asking the guest to power off"));
    EXPECT_THAT(vm.log(), HasSubstr("telling the engine to quit"));
    ASSERT_TRUE(vm.startAndRun());
    // An engine that hears nothing any more is killed in the end.
    const pid_t engine = pid_t(vm.status("engine_pid"));
    kill(engine, SIGSTOP);
    kill(vm.pid(), SIGTERM);
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_THAT(vm.log(), HasSubstr("killing the engine"));
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
    EXPECT_THAT(vm.config(), testing::Not(HasSubstr("state_file")));
    LiveViewer viewer(vm);
    EXPECT_TRUE(viewer.shows([&] { return showsBars(viewer, GUEST_BARS_SIZE); }));
    EXPECT_TRUE(showsBlock(viewer, GUEST_BARS_SIZE, 0x1e, 0));
    viewer.key(0x30, true);
    EXPECT_TRUE(viewer.shows([&] { return showsBlock(viewer, GUEST_BARS_SIZE, 0x30, 2); }));
}

TEST(Live, failedSuspendRunsOnAndFailedResumeKeepsTheState)
{
    LiveVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    std::filesystem::rename(vm.directory().path("images"), vm.directory().path("elsewhere"));
    EXPECT_THAT(vm.ask("suspend\r\n").message(), HasSubstr("the VM runs on"));
    EXPECT_EQ(vm.state(), "running");
    std::filesystem::rename(vm.directory().path("elsewhere"), vm.directory().path("images"));
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    vm.directory().write("vms/" + vm.id() + "/config.yaml",
                         vm.config() + "state_file: bad.state\n");
    const std::string unfinished = "images/." + vm.id() + ".state-abcdef";
    vm.directory().write(unfinished, "of a killed supervisor");
    for (const char *state : {"", "no state at all"}) {
        vm.directory().write("images/bad.state", state);
        vm.start();
        EXPECT_EQ(vm.wait(), EX_SOFTWARE) << state;
        EXPECT_THAT(vm.report(), HasSubstr("the saved state is kept"));
        EXPECT_FALSE(std::filesystem::exists(vm.directory().path(unfinished)));
        EXPECT_THAT(vm.config(), HasSubstr("state_file: bad.state"));
    }
    vm.start({"--mode", "2"});
    EXPECT_TRUE(wait_until([&] { return vm.state() == "running"; }));
    EXPECT_THAT(vm.config(), testing::Not(HasSubstr("state_file")));
}

TEST(Live, badInputIsNamedAndNothingStays)
{
    struct Case
    {
        const char *config, *settings;
        int status;
        const char *message;
    };
    const Case cases[] = {
        {"", "qemu_executable = /nowhere/qemu\n", EX_UNAVAILABLE,
         "QEMU (setting qemu_executable) /nowhere/qemu: No such file"},
        {"", "qemu_executable = /bin/false\n", EX_SOFTWARE, "the engine ended with status 1"},
        {"cdrom: missing.iso\n", "", EX_UNAVAILABLE, "cdrom: image "},
        {"- no: [yaml\n", "", EX_CONFIG, "config.yaml: line "},
        {"firmware: coreboot\n", "", EX_CONFIG, "config.yaml: firmware: \"coreboot\""},
        {"firmware: uefi\n", "uefi_code = /nowhere/code\n", EX_UNAVAILABLE,
         "firmware (setting uefi_code) /nowhere/code"},
        {"", "engine_accel = fast\n", EX_UNAVAILABLE, "engine_accel: \"fast\""},
        {"", "engine_accel = kvm\n", EX_UNAVAILABLE, "engine_accel is kvm, but KVM can't be used"},
    };
    for (const Case &each : cases) {
        if (std::string(each.settings).ends_with("kvm\n") && platform_kvm_check() == 0)
            continue; // it can be used here
        LiveVm vm("bars", each.config, each.settings);
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

TEST(Live, socketOfALiveProcessIsLeftAlone)
{
    LiveVm vm("bars");
    const UniqueFd listener(cli2_listen(vm.socketPath().c_str()));
    ASSERT_TRUE(listener);
    vm.start();
    EXPECT_EQ(vm.wait(), EX_CANTCREAT);
    EXPECT_THAT(vm.log(), HasSubstr("the VM is running already"));
    EXPECT_TRUE(vm.socketExists());
    if (chown(vm.socketPath().c_str(), 65534, 65534) != 0)
        GTEST_SKIP() << "only root can make another user's socket";
    vm.start();
    EXPECT_EQ(vm.wait(), EX_CANTCREAT);
    EXPECT_THAT(vm.log(), HasSubstr("taken by another user (65534)"));
}

} // namespace
