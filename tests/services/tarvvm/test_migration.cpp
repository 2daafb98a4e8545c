// A saved state that is read by a QEMU which says nothing: how far it is counts, silence ends.
#include "services/tarvvm/machine/migration.h"

#include "tests/services/tarvvm/loop_test.h"

#include <chrono>
#include <fcntl.h>

namespace {

constexpr uint64_t SILENCE_MS = 200;

class MigrationTest : public LoopTest
{
protected:
    MigrationTest()
    {
        Qmp::Handlers handlers;
        handlers.ready = [] {};
        handlers.event = [](const std::string &, const json *) {};
        handlers.closed = [](const std::string &) {};
        m_qmp = std::make_unique<Qmp>(m_loop, std::move(m_ends.near), std::move(handlers));
        m_directory.write("state", std::string(1000, 's'));
        m_file.reset(open(m_directory.path("state").c_str(), O_RDONLY | O_CLOEXEC));
        m_migration = std::make_unique<Migration>(m_loop, *m_qmp, SILENCE_MS);
        m_migration->load(m_file.get(), [this](const ServiceFailure &failure) {
            m_ended = true;
            m_failure = failure.text;
        });
    }
    // Turns the loop for a while, or until the end.
    void turnFor(std::chrono::milliseconds time)
    {
        const auto until = std::chrono::steady_clock::now() + time;
        while (!m_ended && std::chrono::steady_clock::now() < until)
            sd_event_run(m_loop, 10'000);
    }

    Ends m_ends{SOCK_STREAM | SOCK_CLOEXEC};
    ScratchDirectory m_directory;
    UniqueFd m_file;
    std::unique_ptr<Qmp> m_qmp;
    std::unique_ptr<Migration> m_migration;
    bool m_ended = false;
    std::string m_failure;
};

TEST_F(MigrationTest, givesUpASilentQemuAndNotOneThatReadsOn)
{
    // It reads on for several times the patience, without a word.
    for (off_t offset = 1; offset <= 20; offset++) {
        lseek(m_file.get(), offset, SEEK_SET);
        turnFor(std::chrono::milliseconds(SILENCE_MS / 4));
    }
    EXPECT_FALSE(m_ended) << m_failure;
    turnFor(std::chrono::seconds(30));
    EXPECT_EQ(m_failure, "QEMU has fallen silent while it reads the state");
}

} // namespace
