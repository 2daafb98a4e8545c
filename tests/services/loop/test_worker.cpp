// Calls that block, away from the loop: their order, their bound, and the end of one that is stuck.
#include "services/loop/worker.h"

#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

#include <sys/file.h>

namespace {

using std::chrono::milliseconds;

class WorkerTest : public testing::Test
{
protected:
    WorkerTest()
    {
        sd_event_new(&m_loop);
        m_worker = Worker::start(m_loop, 3);
    }
    ~WorkerTest() override
    {
        m_worker.reset();
        sd_event_unref(m_loop);
    }
    // Turns the loop until the condition holds.
    bool turnUntil(const std::function<bool()> &condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            sd_event_run(m_loop, 100'000);
        }
        return true;
    }

    sd_event *m_loop = nullptr;
    std::unique_ptr<Worker> m_worker;
};

TEST_F(WorkerTest, callsOffTheLoopInOrderAndEndsOnIt)
{
    const auto here = std::this_thread::get_id();
    std::vector<int> called, ended;
    for (int i = 0; i < 3; i++)
        ASSERT_TRUE(m_worker->run(
            [&called, i, here] {
                called.push_back(i);
                return std::this_thread::get_id() != here;
            },
            [&, i](bool elsewhere) {
                EXPECT_TRUE(elsewhere);
                EXPECT_EQ(std::this_thread::get_id(), here);
                ended.push_back(i);
            }));
    EXPECT_TRUE(turnUntil([&] { return ended.size() == 3; }));
    EXPECT_THAT(called, testing::ElementsAre(0, 1, 2));
    EXPECT_THAT(ended, testing::ElementsAre(0, 1, 2));
}

TEST_F(WorkerTest, loopTurnsWhileACallWaitsAndTheQueueIsBounded)
{
    std::promise<void> begun, gate;
    int ended = 0;
    const auto end = [&] { ended++; };
    ASSERT_TRUE(m_worker->post(
        [&] {
            begun.set_value();
            gate.get_future().wait();
        },
        end));
    begun.get_future().wait();
    for (int i = 0; i < 3; i++)
        EXPECT_TRUE(m_worker->post([] {}, end));
    EXPECT_FALSE(m_worker->post([] {}, end)) << "a fourth may not wait";
    bool ticked = false;
    const EventSource timer = event_timer(m_loop, 1, [&] { ticked = true; });
    EXPECT_TRUE(turnUntil([&] { return ticked; }));
    EXPECT_EQ(ended, 0);
    EXPECT_FALSE(m_worker->finish(milliseconds(10)));
    gate.set_value();
    EXPECT_TRUE(m_worker->finish(std::chrono::seconds(30)));
    EXPECT_EQ(ended, 4) << "finish runs what was to be done after the calls";
    EXPECT_FALSE(m_worker->post([] {}, end)) << "it takes no more";
}

TEST_F(WorkerTest, leavesACallThatIsStuckInAStrangersLock)
{
    const ScratchDirectory directory;
    directory.write("record", "");
    const UniqueFd stranger(open(directory.path("record").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(stranger.get(), LOCK_EX), 0);
    const auto ours =
        std::make_shared<UniqueFd>(open(directory.path("record").c_str(), O_RDONLY | O_CLOEXEC));
    std::promise<void> begun;
    const auto locked = std::make_shared<std::promise<int>>();
    bool ended = false;
    m_worker->post(
        [&begun, ours, locked] {
            begun.set_value();
            locked->set_value(flock(ours->get(), LOCK_SH));
        },
        [&] { ended = true; });
    const auto dropped = std::make_shared<std::atomic<bool>>(false);
    m_worker->post([dropped] { *dropped = true; }, nullptr);
    begun.get_future().wait();
    m_worker.reset(); // comes back although the call does not
    sd_event_run(m_loop, 0);
    EXPECT_FALSE(ended);
    flock(stranger.get(), LOCK_UN);
    EXPECT_EQ(locked->get_future().get(), 0) << "what the call uses is still there";
    EXPECT_FALSE(*dropped) << "a call that had not begun is dropped";
}

TEST_F(WorkerTest, endMayDestroyTheWorker)
{
    int ended = 0;
    std::promise<void> gate;
    m_worker->post([&] { gate.get_future().wait(); }, nullptr);
    for (int i = 0; i < 2; i++)
        m_worker->post([] {},
                       [&] {
                           ended++;
                           m_worker.reset();
                       });
    gate.set_value();
    EXPECT_TRUE(turnUntil([&] { return ended > 0; }));
    sd_event_run(m_loop, 0);
    EXPECT_EQ(ended, 1) << "nothing is run after the destructor";
}

} // namespace
