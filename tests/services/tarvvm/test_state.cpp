// The states of a VM and the ladder of a stop.
#include "services/tarvvm/core/state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace {

TEST(State, allowsWhatIsInTheTableAndNothingElse)
{
    using enum VmEvent;
    using enum VmState;
    constexpr VmState no = VmState(-1);
    // Events from guestRuns to engineEnded.
    const std::pair<VmState, std::array<VmState, 6>> table[] = {
        {starting, {running, no, no, no, stopping, ended}},
        {running, {no, suspending, no, no, stopping, ended}},
        {suspending, {no, no, running, stopping, stopping, ended}},
        {stopping, {no, no, no, no, no, ended}},
        {ended, {no, no, no, no, no, no}}};
    for (const auto &[state, nexts] : table)
        for (int event = int(guestRuns); event <= int(engineEnded); event++)
            EXPECT_EQ(vm_state_next(state, VmEvent(event)).value_or(no), nexts[size_t(event)])
                << vm_state_name(state) << " " << event;
}

TEST(StopLadder, waitsForTheGuestAsLongAsItIsToldTo)
{
    EXPECT_EQ(stop_patience_ms(StopRung::ask, 0), 20000u);
    EXPECT_EQ(stop_patience_ms(StopRung::ask, 3), 3000u);
}

} // namespace
