// The states of a VM, the ladder of a stop, and merged damage.
#include "services/tarvvm/core/state.h"
#include "services/tarvvm/screens/damage.h"

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

TEST(Damage, mergesWhatFitsAndBoxesTheRest)
{
    Damage damage;
    damage.add({0, 0, 100, 10});
    damage.add({0, 10, 100, 10}); // below: one rectangle
    damage.add({20, 5, 10, 10});  // within
    damage.add({0, 0, 0, 10});    // nothing
    EXPECT_THAT(damage.rects(), testing::ElementsAre(Rect{0, 0, 100, 20}));
    damage.add({200, 0, 10, 10}); // apart
    EXPECT_EQ(damage.rects().size(), 2u);
    for (int i = 0; i < 6; i++)
        damage.add({300 + 20 * i, 100 * i, 10, 10});
    EXPECT_EQ(damage.rects().size(), Damage::MAX);
    damage.add({0, 900, 1, 1});
    EXPECT_THAT(damage.rects(), testing::ElementsAre(Rect{0, 0, 410, 901}));
    damage.clip(405, 20);
    EXPECT_THAT(damage.rects(), testing::ElementsAre(Rect{0, 0, 405, 20}));
    damage.clip(0, 20);
    EXPECT_TRUE(damage.empty());
}

} // namespace
