// A saved state is run from once, wherever on the way the power goes: the supervisor is killed
// while QEMU's next message is held.
#include "tests/services/tarvvm/faulty_vm.h"
#include "tests/support/small_disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <sys/file.h>
#include <sysexits.h>

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr const char *AFRESH = ": the VM boots afresh", *RESUMES = "resuming from ";

class UsedStateTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(vm.startAndRun());
        suspend();
    }
    void suspend()
    {
        ASSERT_EQ(vm.ask("suspend\r\n").status(), "OK");
        ASSERT_EQ(vm.wait(), 0);
        m_record = vm.config();
        ASSERT_THAT(m_record, HasSubstr("state_file: " + vm.id()));
    }
    std::string mark() const { return file_text(vm.file("vms/" + vm.id() + "/state.used")); }
    bool logged(const std::string &text) const { return vm.log().find(text) != std::string::npos; }
    void forgetLog() const { std::filesystem::remove(vm.file("log/stderr")); }
    // Starts while QEMU hangs as planned, and waits until it does.
    void startAndHang(const std::string &plan, bool marked,
                      const std::vector<std::string> &arguments = {})
    {
        forgetLog();
        std::filesystem::remove(vm.file("reached"));
        vm.plan(plan);
        vm.start(arguments);
        ASSERT_TRUE(wait_for([&] { return std::filesystem::exists(vm.file("reached")); })) << plan;
        ASSERT_EQ(!mark().empty(), marked) << plan;
        vm.plan("");
    }
    void killSupervisor()
    {
        kill(vm.pid(), SIGKILL);
        EXPECT_EQ(vm.wait(), 137);
        EXPECT_TRUE(wait_for([&] { return processes_with(vm.id()).empty(); }));
    }
    void killEngine()
    {
        kill(pid_t(vm.status("engine_pid")), SIGKILL);
        EXPECT_EQ(vm.wait(), EX_SOFTWARE);
    }
    // The next start is as it should be, and the state is gone once the guest runs.
    void expectNextStart(const std::string &what)
    {
        forgetLog();
        ASSERT_TRUE(vm.startAndRun());
        EXPECT_TRUE(logged(what)) << vm.log();
        EXPECT_TRUE(wait_for([&] {
            return vm.config().find("state_file") == std::string::npos && vm.images().empty() &&
                   mark().empty();
        }));
    }
    void endByForce()
    {
        EXPECT_EQ(vm.ask("stop\r\n{\"force\":true}").status(), "OK");
        EXPECT_EQ(vm.wait(), 0);
    }

    FaultyVm vm{"bars"};
    std::string m_record;
};

TEST_F(UsedStateTest, isNotResumedFromOnceItIsMarked)
{
    const struct
    {
        const char *plan;
        bool marked;
    } windows[] = {
        {"before migrate-incoming hang", false},
        {"answer query-migrate hang", false},
        {"before cont hang", true},
        {"event RESUME hang", true},
        {"answer cont hang", true},
    };
    for (const auto &each : windows) {
        SCOPED_TRACE(each.plan);
        startAndHang(each.plan, each.marked);
        killSupervisor();
        expectNextStart(each.marked ? AFRESH : RESUMES);
        EXPECT_EQ(vm.ask("status\r\n").tree &&
                      json_find_str(vm.ask("status\r\n").tree.get(), "body.note", nullptr),
                  each.marked);
        suspend();
    }
}

TEST_F(UsedStateTest, isKeptByAnAttemptThatProvablyNeverRan)
{
    for (const auto &arguments : {std::vector<std::string>{}, {"--mode", "2"}}) {
        startAndHang("before cont hang", true, arguments);
        killEngine();
        EXPECT_EQ(mark(), "") << "the guest was never let run";
        EXPECT_EQ(vm.report().find("the saved state is kept") != std::string::npos,
                  arguments.empty());
        EXPECT_EQ(vm.config(), m_record);
    }
    // QEMU said that the guest runs, and nothing more: it may have.
    startAndHang("answer cont hang", true);
    killEngine();
    EXPECT_THAT(vm.report(), HasSubstr("the saved state is used up; the next start boots afresh"));
    EXPECT_NE(mark(), "");
    expectNextStart(AFRESH);
}

TEST_F(UsedStateTest, bootsAfreshThoughAReaderKeptTheRecordFromChanging)
{
    const UniqueFd reader(
        open(vm.file("vms/" + vm.id() + "/config.yaml").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(reader.get(), LOCK_SH), 0);
    ASSERT_TRUE(vm.startAndRun());
    EXPECT_EQ(vm.state(), "running") << "the loop does not wait for the lock";
    endByForce();
    EXPECT_EQ(vm.config(), m_record);
    flock(reader.get(), LOCK_UN);
    expectNextStart(AFRESH);
}

TEST_F(UsedStateTest, isKeptWhenItCanNotBeMarked)
{
    SmallDisk disk(vm.file("vms"), "64k");
    if (!disk.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    disk.fill();
    vm.start();
    EXPECT_EQ(vm.wait(), EX_SOFTWARE);
    EXPECT_THAT(vm.report(), HasSubstr("it can't be marked as used: state.used: No space left"));
    EXPECT_THAT(vm.report(), HasSubstr("the saved state is kept"));
    EXPECT_EQ(vm.config(), m_record);
    disk.release();
    expectNextStart(RESUMES);
}

// What was answered with OK outlives a loss of power: each step is on the disk before the next one.
TEST(SuspendOrder, seesEachStepOntoTheDiskBeforeTheNext)
{
    LiveVm vm("bars");
    vm.home().environment["LD_PRELOAD"] = SYNC_LOG;
    vm.home().environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    ASSERT_TRUE(vm.startAndRun());
    const size_t running = vm.log().size();
    ASSERT_EQ(vm.ask("suspend\r\n").status(), "OK");
    ASSERT_EQ(vm.wait(), 0);
    const std::string log = vm.log(), images = vm.file("images"),
                      record = vm.file("vms/") + vm.id();
    size_t place = running;
    for (const std::string &step :
         {"synced " + images + "/." + vm.id() + ".state-", "named " + images + "/" + vm.id() + "-",
          "synced " + images + "\n", "synced " + record + "/config.yaml\n",
          std::string("telling the engine to quit")}) {
        const size_t next = log.find(step, place);
        EXPECT_NE(next, std::string::npos) << step;
        place = next == std::string::npos ? place : next;
    }
}

} // namespace
