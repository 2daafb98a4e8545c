// A VM's log file, which the launch service makes its supervisor's standard error as well.
#include "services/bounds.h"
#include "services/tarvvm/machine/vm_log.h"
#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

} // namespace
