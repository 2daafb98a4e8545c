// The states of a run, the ladder that ends one, and what is said of its end.
#include "services/tarvvm/core/ladder.h"
#include "services/tarvvm/core/run_state.h"
#include "services/tarvvm/core/verdict.h"
#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

using testing::ElementsAre;

namespace {

constexpr int EVENTS = int(RunEvent::engineEnded) + 1;

TEST(RunState, allowsWhatIsInTheTableAndNothingElse)
{
    using enum RunState;
    constexpr RunState no = RunState(-1);
    // Events from loadBegun to engineEnded.
    const std::array<RunState, EVENTS> table[] = {
        {resuming, releasing, no, no, no, no, no, no, no, no, forcing, givingUp, ended},
        {no, releasing, no, no, no, no, no, no, no, no, forcing, givingUp, ended},
        {no, no, running, no, no, no, no, no, no, no, forcing, givingUp, ended},
        {no, no, no, waitingForRoom, no, suspending, no, no, stopping, no, forcing, givingUp,
         ended},
        {no, no, no, waitingForRoom, running, suspending, no, no, waitingForRoom, no, forcing,
         givingUp, ended},
        {no, no, no, no, no, no, running, forcing, no, no, forcing, givingUp, ended},
        {no, no, no, waitingForRoom, no, suspending, no, no, stopping, running, forcing, givingUp,
         ended},
        {no, no, no, no, no, no, no, no, no, no, no, no, ended},
        {no, no, no, no, no, no, no, no, no, no, no, no, ended},
        {no, no, no, no, no, no, no, no, no, no, no, no, no}};
    for (int state = int(starting); state <= int(ended); state++)
        for (int event = 0; event < EVENTS; event++)
            EXPECT_EQ(run_state_next(RunState(state), RunEvent(event)).value_or(no),
                      table[state][size_t(event)])
                << run_state_name(RunState(state)) << " " << event;
}

TEST(RunState, keepsItsReasonAndWhatWasReached)
{
    ::Run run;
    for (const RunEvent event : {RunEvent::machineReady, RunEvent::guestRuns})
        ASSERT_TRUE(run.step(event));
    ASSERT_TRUE(run.step(RunEvent::roomMissing, "disk0 is full"));
    EXPECT_EQ(run.reason(), "disk0 is full");
    EXPECT_FALSE(run.step(RunEvent::suspendFailed, "never begun"));
    EXPECT_EQ(run.state(), RunState::waitingForRoom) << "a refused event changes nothing";
    EXPECT_EQ(run.reason(), "disk0 is full");
    ASSERT_TRUE(run.step(RunEvent::stopAsked));
    EXPECT_EQ(run.reason(), "disk0 is full") << "it still waits";
    ASSERT_TRUE(run.step(RunEvent::roomFound));
    EXPECT_EQ(run.reason(), "");
    ASSERT_TRUE(run.step(RunEvent::givenUp, "QEMU closed its monitor"));
    ASSERT_TRUE(run.step(RunEvent::engineEnded));
    EXPECT_EQ(run.reason(), "QEMU closed its monitor");
    EXPECT_EQ(run.reached(), RunState::running);
}

class LadderTest : public LoopTest
{
protected:
    LadderTest() : m_ladder(m_loop, [this](Rung rung) { m_rungs.push_back(rung); }) {}
    std::vector<Rung> m_rungs;
    Ladder m_ladder;
};

TEST_F(LadderTest, climbsAndNeverGoesDown)
{
    m_ladder.climbTo(Rung::terminate);
    m_ladder.climbTo(Rung::terminate);
    m_ladder.climbTo(Rung::signal);
    m_ladder.climbTo(Rung::terminate);
    m_ladder.leave(1);
    EXPECT_THAT(m_rungs, ElementsAre(Rung::terminate, Rung::signal));
    EXPECT_EQ(m_ladder.reached(), Rung::signal);
    EXPECT_EQ(ladder_next(Rung::terminate), Rung::signal);
    EXPECT_EQ(ladder_next(Rung::signal), Rung::kill);
}

TEST_F(LadderTest, killsWhatDoesNotLeave)
{
    m_ladder.leave(1);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (m_rungs.size() < 3 && std::chrono::steady_clock::now() < deadline)
        sd_event_run(m_loop, 100'000);
    EXPECT_THAT(m_rungs, ElementsAre(Rung::leave, Rung::kill, Rung::kill));
}

TEST(Verdict, saysWhyTheEngineEndedUnlessThatWasAsked)
{
    using enum RunEvent;
    const EngineEnd well{0, ""}, badly{137, "the engine was killed by signal 9"};
    const std::string kept =
        " (the saved state is kept; tarvctl start --recovery boots without it)";
    struct Case
    {
        std::vector<RunEvent> steps;
        EngineEnd end;
        bool killed, suspended;
        const char *state;
        std::string verdict;
    };
    const Case cases[] = {
        {{machineReady, guestRuns}, well, false, false, "", ""},
        {{machineReady, guestRuns}, badly, false, false, "", badly.message},
        {{machineReady, guestRuns, forced}, badly, true, false, "", ""},
        {{machineReady, guestRuns, stopAsked}, badly, false, false, "", badly.message},
        {{}, well, false, false, "", "the engine ended before the guest ran"},
        {{givenUp}, badly, true, false, "", "why"},
        {{givenUp}, badly, false, false, "", badly.message}, // it ended by itself and says more
        {{givenUp}, well, false, false, "", "why"},
        {{givenUp}, badly, true, false, "s", "why" + kept},
        {{loadBegun, givenUp},
         badly,
         true,
         false,
         "s",
         "the saved state s can't be resumed: why" + kept},
        {{loadBegun, machineReady}, badly, false, false, "s", badly.message + kept},
        {{loadBegun, machineReady, guestRuns}, badly, false, false, "s", badly.message},
        {{machineReady, guestRuns, suspendAsked}, badly, false, false, "", badly.message},
        {{machineReady, guestRuns, suspendAsked}, badly, false, true, "", ""},
    };
    for (const Case &each : cases) {
        ::Run run;
        for (const RunEvent event : each.steps)
            ASSERT_TRUE(run.step(event, "why"));
        EXPECT_EQ(run_verdict({run, each.end, each.killed, each.suspended, each.state}),
                  each.verdict)
            << run_state_name(run.reached()) << " " << run_state_name(run.state());
    }
}

} // namespace
