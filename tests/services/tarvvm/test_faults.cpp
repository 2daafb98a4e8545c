// The engine dies, hangs and runs out of disk at every stage: what the user is told and what is
// left.
#include "tests/services/tarvvm/faulty_vm.h"
#include "tests/support/small_disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <sysexits.h>

using testing::HasSubstr;
using testing::Not;

namespace {

TEST(Faults, engineThatDiesWhileStartingIsNamed)
{
    const struct
    {
        const char *plan, *message;
    } cases[] = {
        {"before greeting kill", "the engine was killed by signal 9"},
        {"before greeting exit", "status 1: qemu: -device ghost: no device of this name"},
        {"after greeting kill", "the engine was killed by signal 9"},
        {"after qmp_capabilities kill", "the engine was killed by signal 9"},
        {"before add_client kill", "the engine was killed by signal 9"},
        {"after add_client kill", "the engine was killed by signal 9"},
        {"before cont kill", "the engine was killed by signal 9"},
        {"after cont kill", "the engine was killed by signal 9"},
        {"after add_client close", "QEMU closed its monitor"},
    };
    FaultyVm vm("bars");
    for (const auto &each : cases) {
        SCOPED_TRACE(each.plan);
        vm.plan(each.plan);
        vm.start();
        EXPECT_EQ(vm.wait(), EX_SOFTWARE);
        EXPECT_THAT(vm.report(), HasSubstr(each.message));
        vm.expectGone();
    }
    vm.plan("");
    EXPECT_TRUE(vm.startAndRun());
}

// Whatever happens, the answer, the record and the files say the same.
TEST(Faults, suspendThatFailsLeavesNothingAndOneThatSucceededStays)
{
    for (const char *plan :
         {"before stop kill", "before migrate kill", "after migrate kill",
          "before query-migrate kill", "after query-migrate kill", "before quit kill"}) {
        SCOPED_TRACE(plan);
        FaultyVm vm("bars");
        vm.plan(plan);
        ASSERT_TRUE(vm.startAndRun());
        const LiveAnswer answer = vm.ask("suspend\r\n");
        const bool saved = answer.status() == "OK";
        EXPECT_TRUE(saved || std::string(plan) != "before quit kill");
        EXPECT_EQ(answer.message(),
                  saved ? "" : "not suspended: the engine was killed by signal 9");
        EXPECT_EQ(vm.wait(), saved ? 0 : EX_SOFTWARE);
        EXPECT_EQ(vm.images().size(), saved ? 1u : 0u);
        EXPECT_EQ(vm.config().find("state_file") != std::string::npos, saved);
        vm.expectGone();
    }
}

TEST(Faults, hungEngineIsEndedByForceAlsoWhileItIsSuspended)
{
    FaultyVm vm("bars");
    vm.plan("before migrate hang");
    ASSERT_TRUE(vm.startAndRun());
    auto suspended =
        std::async(std::launch::async, [&] { return vm.ask("suspend\r\n").message(); });
    EXPECT_TRUE(wait_for([&] { return vm.state() == "suspending"; }));
    EXPECT_EQ(vm.ask("stop\r\n").message(), "the VM is being suspended");
    EXPECT_EQ(vm.ask("reboot\r\n").message(), "the VM is suspending");
    EXPECT_EQ(vm.ask("suspend\r\n").message(), "the VM is suspending");
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(suspended.get(), "not suspended: the VM ended");
    EXPECT_EQ(vm.wait(), 0);
    EXPECT_TRUE(vm.images().empty());
    EXPECT_THAT(vm.config(), Not(HasSubstr("state_file")));
    vm.expectGone();
}

TEST(Faults, screenThatTheEngineDropsClosesItsViewers)
{
    FaultyVm vm("bars");
    vm.plan("after system_reset blind");
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer viewer(vm);
    EXPECT_EQ(vm.ask("reboot\r\n").status(), "OK");
    EXPECT_TRUE(wait_for([&] { return !viewer.take(); }));
    EXPECT_EQ(viewer.closedReason(), DISPLAY_CLOSE_REMOVED);
    EXPECT_THAT(vm.ask("display\r\n{\"index\":0}").message(), HasSubstr("no such screen"));
    EXPECT_EQ(vm.state(), "running");
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
}

TEST(Faults, resumeThatFailsKeepsTheStateUntilAStartDoesWithout)
{
    FaultyVm vm("bars");
    ASSERT_TRUE(vm.startAndRun());
    ASSERT_EQ(vm.ask("suspend\r\n").status(), "OK");
    ASSERT_EQ(vm.wait(), 0);
    ASSERT_EQ(vm.images().size(), 1u);
    const std::string state = "images/" + vm.images()[0], saved = file_text(vm.file(state));
    const std::string record = vm.config();
    const std::string cut = saved.substr(0, saved.size() / 2), killed = "killed by signal 9";
    const struct
    {
        std::string plan, state, record, message;
    } cases[] = {
        {"before migrate-incoming kill", saved, record, killed},
        {"after migrate-incoming kill", saved, record, killed},
        {"before query-migrate kill", saved, record, killed},
        {"before cont kill", saved, record, killed},
        {"", cut, record, "load of migration failed"},
        {"", "", record, "load of migration failed"},
        {"", "no state at all", record, "load of migration failed"},
        {"", saved, "ram: {size: 33554432}" + record.substr(record.find("\nhard")),
         "load of migration failed"},
    };
    // What a killed supervisor left: a file that is not whole, and a state that is not recorded.
    const std::string stray = "images/" + vm.id() + "-12.state";
    vm.write("images/." + vm.id() + ".state-abcdef", "not whole");
    vm.write(stray, "never recorded");
    for (const auto &each : cases) {
        SCOPED_TRACE(each.plan + " " + std::to_string(each.state.size()));
        vm.plan(each.plan);
        vm.write(state, each.state);
        vm.write("vms/" + vm.id() + "/config.yaml", each.record);
        vm.start();
        ASSERT_EQ(vm.wait(), EX_SOFTWARE);
        EXPECT_THAT(vm.report(), HasSubstr(each.message));
        EXPECT_THAT(vm.report(), HasSubstr("the saved state is kept; tarvctl start --recovery"));
        EXPECT_EQ(vm.config(), each.record);
        EXPECT_THAT(vm.images(), testing::ElementsAre(state.substr(7)));
        EXPECT_TRUE(file_text(vm.file(state)) == each.state) << "the state changed";
        vm.expectGone();
    }
    vm.plan("");
    vm.write("vms/" + vm.id() + "/config.yaml", record);
    vm.start({"--mode", "2"}); // recovery: boots without it
    EXPECT_TRUE(wait_for([&] { return vm.state() == "running" && vm.images().empty(); }));
    EXPECT_THAT(vm.config(), Not(HasSubstr("state_file")));
}

// ---- full disks ---------------------------------------------------------------------------------

TEST(Faults, fullDiskFailsASuspendAndTheGuestRunsOn)
{
    FaultyVm vm("bars");
    SmallDisk disk(vm.file("images"), "2m");
    if (!disk.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    ASSERT_TRUE(vm.startAndRun());
    disk.fill(65536);
    EXPECT_THAT(vm.ask("suspend\r\n").message(),
                testing::AllOf(HasSubstr("not suspended, the VM runs on: "),
                               HasSubstr("No space left on device")));
    EXPECT_EQ(vm.state(), "running");
    EXPECT_TRUE(vm.images().empty());
    EXPECT_THAT(vm.config(), Not(HasSubstr("state_file")));
}

TEST(Faults, fullDiskOfTheRecordFailsASuspendAndAnNvram)
{
    // With a saved state the record needs another block.
    FaultyVm vm("bars", "filler: " + std::string(4000, 'x') + "\n");
    SmallDisk disk(vm.file("vms"), "64k");
    if (!disk.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    ASSERT_TRUE(vm.startAndRun());
    const std::string record = vm.config(); // with the machine type that the start settled
    disk.fill();
    EXPECT_THAT(vm.ask("suspend\r\n").message(),
                HasSubstr("the VM runs on: the state can't be recorded: No space left"));
    EXPECT_EQ(vm.config(), record);
    EXPECT_TRUE(vm.images().empty());
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    disk.release();
    vm.write("vms/" + vm.id() + "/config.yaml", "firmware: uefi\n" + record);
    vm.start();
    EXPECT_EQ(vm.wait(), EX_CANTCREAT);
    EXPECT_THAT(vm.report(), HasSubstr("nvram: can't be made from "));
    EXPECT_THAT(vm.report(), HasSubstr("No space left on device"));
    EXPECT_FALSE(std::filesystem::exists(vm.file("vms/" + vm.id() + "/.nvram.new")));
}

TEST(Faults, guestWaitsForRoomOnTheDiskAndGoesOn)
{
    FaultyVm vm("writer");
    SmallDisk disk(vm.file("images"), "48m"), log(vm.file("log"), "64k");
    if (!disk.mounted() || !log.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    std::filesystem::resize_file(vm.file("images/disk.img"), 32 << 20);
    disk.fill(4 << 20); // of room that stays
    ASSERT_TRUE(vm.startAndRun());
    const auto notice = [&] {
        return std::string(json_find_str(vm.ask("status\r\n").tree.get(), "body.notice", ""));
    };
    EXPECT_TRUE(wait_for([&] { return !notice().empty(); }));
    EXPECT_EQ(notice(), "disk disk0: No space left on device: the guest waits");
    EXPECT_EQ(vm.state(), "running");
    log.fill();
    disk.release();
    EXPECT_TRUE(wait_for([&] { return notice().empty(); }));
    EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
    EXPECT_EQ(vm.wait(), 0) << "a log that can't be written ends nothing";
}

} // namespace
