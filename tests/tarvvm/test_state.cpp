// The states of a VM, the ladder of a stop, and merged damage.
#include "services/tarvvm/damage.h"
#include "services/tarvvm/state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(State, refusesWhatIsNotInTheTable)
{
    using enum VmEvent;
    const auto next = vm_state_next;
    EXPECT_EQ(next(VmState::starting, guestRuns), VmState::running);
    EXPECT_EQ(next(VmState::running, suspendAsked), VmState::suspending);
    EXPECT_EQ(next(VmState::suspending, suspendFailed), VmState::running);
    EXPECT_EQ(next(VmState::suspending, stateSaved), VmState::stopping);
    EXPECT_EQ(next(VmState::stopping, engineEnded), VmState::ended);
    const std::pair<VmState, VmEvent> refused[] = {
        {VmState::starting, suspendAsked}, {VmState::running, guestRuns},
        {VmState::running, stateSaved},    {VmState::suspending, suspendAsked},
        {VmState::stopping, guestRuns},    {VmState::stopping, suspendAsked},
        {VmState::stopping, stopAsked},    {VmState::ended, stopAsked},
        {VmState::ended, engineEnded},     {VmState::ended, guestRuns}};
    for (const auto &[state, event] : refused)
        EXPECT_FALSE(next(state, event)) << vm_state_name(state) << " " << int(event);
}

TEST(StopLadder, climbsFromAskToKill)
{
    EXPECT_EQ(stop_first(StopKind::ask), StopRung::ask);
    EXPECT_EQ(stop_first(StopKind::force), StopRung::terminate);
    EXPECT_EQ(stop_next(StopRung::ask), StopRung::terminate);
    EXPECT_EQ(stop_next(StopRung::terminate), StopRung::signal);
    EXPECT_EQ(stop_next(StopRung::signal), StopRung::kill);
    EXPECT_EQ(stop_next(StopRung::kill), StopRung::kill);
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
