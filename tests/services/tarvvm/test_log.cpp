// A VM's log file, which the launch service makes its supervisor's standard error as well, and what
// its guest prints.
#include "services/bounds.h"
#include "services/tarvvm/machine/engine_process.h"
#include "services/tarvvm/machine/vm_log.h"
#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <sstream>

namespace {

TEST(VmLog, staysWholeAndSmallWithTwoWriters)
{
    const ScratchDirectory directory;
    const std::string path = directory.path("vm.log");
    const UniqueFd before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    {
        // As the launch service opens it.
        const UniqueFd job(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        dup2(job.get(), STDERR_FILENO);
        VmLog log;
        ASSERT_TRUE(log.openFile(directory.path(), "vm"));
        const std::string filler(100, 'x');
        for (int i = 0; i < 20000; i++) {
            dprintf(STDERR_FILENO, "library: %d %s\n", i, filler.c_str());
            log.line(std::to_string(i) + " " + filler);
            ASSERT_LE(lseek(job.get(), 0, SEEK_END), off_t(VM_LOG_MAX) + 200) << i;
        }
    }
    dup2(before.get(), STDERR_FILENO);
    std::istringstream text(directory.read("vm.log"));
    int own = 0, other = 0, last = -1;
    for (std::string line; std::getline(text, line);) {
        const bool ours = line.find(" tarvvm: ") == 19;
        ASSERT_TRUE(ours || line.starts_with("library: ")) << line;
        const int number = atoi(line.c_str() + (ours ? 28 : 9));
        ASSERT_TRUE(last < 0 || number == last + !ours) << "lost or doubled: " << line;
        last = number;
        ours ? own++ : other++;
    }
    EXPECT_EQ(last, 19999);
    EXPECT_GT(own, 1000);
    EXPECT_NEAR(own, other, 1);
}

using GuestConsole = LoopTest;

TEST_F(GuestConsole, thatIsFloodedIsTakenAsSlowlyAsALineAndWashesNothingOut)
{
    const ScratchDirectory directory;
    const Capture err(STDERR_FILENO);
    EngineProcess::Channels channels;
    ASSERT_TRUE(channels.make());
    VmLog log;
    ASSERT_TRUE(log.openFile(directory.path(), "vm"));
    log.line("of the supervisor");
    Launch launch;
    launch.program = "/bin/sh";
    launch.arguments = {"-c", "exec yes " + std::string(500, 'x') + " >&" +
                                  std::to_string(channels.engine_console.get())};
    bool ended = false;
    const std::unique_ptr<EngineProcess> engine = EngineProcess::start(
        m_loop, launch, &channels, log, [&](const EngineEnd &) { ended = true; });
    ASSERT_TRUE(engine);
    const auto begun = std::chrono::steady_clock::now();
    const auto passed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    };
    const std::string path = directory.path("vm.console.log");
    const auto size = [&] { return double(std::filesystem::file_size(path)); };
    for (double all = 0; passed() < 20 && all < 256 * 1024; all = size()) // what comes at once
        sd_event_run(m_loop, 100000);
    int turns = 0;
    for (const double until = passed() + 0.5; passed() < until; turns++)
        sd_event_run(m_loop, 100000);
    EXPECT_LT(turns, 100) << "the loop has time for others";
    EXPECT_LT(size(), 1.1 * (256 * 1024 + passed() * 16 * 1024 + 8192));
    engine->signal(SIGKILL);
    for (int i = 0; i < 200 && !ended; i++)
        sd_event_run(m_loop, 100000);
    EXPECT_TRUE(ended);
    EXPECT_THAT(directory.read("vm.log"), testing::HasSubstr("of the supervisor"));
    EXPECT_LE(size(), double(VM_LOG_MAX));
}

} // namespace
