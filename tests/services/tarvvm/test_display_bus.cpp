// The connection to QEMU's display, with an engine that does not answer.
#include "services/tarvvm/screens/display_bus.h"

#include "tests/services/tarvvm/loop_test.h"

#include <chrono>
#include <future>

namespace {

using DisplayBusTest = LoopTest;

TEST_F(DisplayBusTest, doesNotKeepTheLoopFromEndingForAnEngineThatStandsStill)
{
    Ends ends(SOCK_STREAM | SOCKET_FLAGS);
    std::unique_ptr<DisplayBus> bus = DisplayBus::open(m_loop, std::move(ends.near), {});
    ASSERT_TRUE(bus);
    bus->key(0, 30, true,
             [](const ServiceFailure &) {}); // queued: the engine does not even introduce itself
    sd_event_exit(m_loop, 0);
    // In a thread of its own, so that a loop that hangs is seen and let go of.
    std::future<int> ended = std::async(std::launch::async, sd_event_loop, m_loop);
    EXPECT_EQ(ended.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    ends.far.reset();
    EXPECT_EQ(ended.get(), 0);
}

} // namespace
