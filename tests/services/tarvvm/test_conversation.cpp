// Requests of the service socket: what is refused, what is asked for, who waits until when.
#include "services/tarvvm/core/conversation.h"

#include "tarvhv/cli2.h"
#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::HasSubstr;

namespace {

class ConversationTest : public testing::Test
{
protected:
    ConversationTest()
    {
        Conversation::Orders orders;
        orders.describe = [] { return JsonTree(json_mkobject()); };
        orders.stop = [this](StopKind kind) {
            m_asked += kind == StopKind::ask ? "stop " : "force ";
        };
        orders.suspend = [this] { m_asked += "suspend "; };
        orders.reboot = [this](std::function<void(const ServiceFailure &)> done) {
            m_asked += "reboot ";
            m_rebooted = std::move(done);
        };
        orders.view = [this](size_t index, int *, UniqueFd *) {
            m_asked += "view" + std::to_string(index) + " ";
            errno = ENOENT;
            return JsonTree();
        };
        m_conversation = std::make_unique<Conversation>(m_run, std::move(orders));
    }
    void run()
    {
        ASSERT_TRUE(m_run.step(RunEvent::machineReady) && m_run.step(RunEvent::guestRuns));
    }
    // The end on which the answer comes.
    UniqueFd ask(const std::string &text)
    {
        Ends ends(SOCK_STREAM | SOCK_CLOEXEC);
        CollectedRequest collected(cli2_request_new());
        size_t used = 0;
        EXPECT_EQ(cli2_request_feed(collected.get(), text.data(), text.size(), &used, nullptr), 1);
        m_conversation->take(
            std::make_unique<ServiceRequest>(std::move(ends.near), std::move(collected)));
        return std::move(ends.far);
    }
    // "" while there is none.
    static std::string answer(const UniqueFd &socket)
    {
        char text[1024];
        const ssize_t length = recv(socket.get(), text, sizeof text, MSG_DONTWAIT);
        return length > 0 ? std::string(text, size_t(length)) : "";
    }

    ::Run m_run;
    std::string m_asked;
    std::function<void(const ServiceFailure &)> m_rebooted;
    std::unique_ptr<Conversation> m_conversation;
};

TEST_F(ConversationTest, refusesWhatTheStateDoesNotAllow)
{
    for (const char *command : {"suspend\r\n", "reboot\r\n"})
        EXPECT_THAT(answer(ask(command)), HasSubstr("the VM is starting"));
    run();
    const UniqueFd suspended = ask("suspend\r\n");
    EXPECT_THAT(answer(ask("suspend\r\n")), HasSubstr("the VM is suspending"));
    EXPECT_THAT(answer(ask("stop\r\n")), HasSubstr("the VM is being suspended"));
    const UniqueFd stopped = ask("stop\r\n{\"force\":true}");
    EXPECT_THAT(answer(ask("dance\r\n")), HasSubstr("unknown command"));
    EXPECT_EQ(m_asked, "suspend force ");
    EXPECT_EQ(answer(suspended) + answer(stopped), "");
}

TEST_F(ConversationTest, keepsEverybodyUntilThereIsSomethingToSay)
{
    const UniqueFd early = ask("display\r\n{\"index\":2}");
    EXPECT_EQ(m_asked, "") << "a screen is not asked for before the guest runs";
    run();
    m_conversation->guestRuns();
    EXPECT_THAT(answer(early), HasSubstr("screen 2: there is no such screen"));
    const UniqueFd rebooted = ask("reboot\r\n"), suspended = ask("suspend\r\n");
    EXPECT_EQ(answer(rebooted), "");
    m_rebooted({EIO, "no"});
    EXPECT_THAT(answer(rebooted), HasSubstr("\"message\":\"no\""));
    ASSERT_TRUE(m_run.step(RunEvent::suspendFailed));
    m_conversation->suspendFailed({EIO, "no room"});
    EXPECT_THAT(answer(suspended), HasSubstr("not suspended, the VM runs on: no room"));
    const UniqueFd stopped = ask("stop\r\n");
    EXPECT_EQ(answer(stopped), "");
    m_conversation->end(Conversation::Outcome::ended, "");
    EXPECT_THAT(answer(stopped), HasSubstr("OK"));
}

TEST_F(ConversationTest, keepsNoMoreThanSoManyOfAKindAndOrdersOneReboot)
{
    run();
    std::vector<UniqueFd> stops, reboots;
    for (size_t i = 0; i <= Conversation::WAITING_MAX; i++) {
        reboots.push_back(ask("reboot\r\n"));
        stops.push_back(ask("stop\r\n"));
    }
    EXPECT_THAT(answer(stops[0]), HasSubstr("too many requests wait"));
    EXPECT_THAT(answer(reboots[0]), HasSubstr("too many requests wait"));
    EXPECT_EQ(answer(stops[1]) + answer(reboots[1]), "");
    EXPECT_EQ(m_asked.find("reboot"), m_asked.rfind("reboot"));
    m_rebooted({});
    EXPECT_THAT(answer(reboots.back()), HasSubstr("OK"));
    const UniqueFd again = ask("reboot\r\n");
    EXPECT_TRUE(m_asked.ends_with("reboot "));
    m_conversation->end(Conversation::Outcome::ended, "killed");
    EXPECT_THAT(answer(stops.back()), HasSubstr("OK"));
    EXPECT_THAT(answer(again), HasSubstr("killed"));
    m_rebooted({}); // nobody waits for it any more
}

TEST_F(ConversationTest, guestThatDoesNotPowerOffRunsOn)
{
    run();
    const UniqueFd asked = ask("stop\r\n"), forced = ask("stop\r\n{\"force\":true}");
    m_conversation->stopLapsed(std::chrono::seconds(20));
    EXPECT_THAT(answer(asked), HasSubstr("\"error\":" + std::to_string(ETIMEDOUT)));
    EXPECT_EQ(answer(forced), "") << "who forces it waits for its end";
    m_conversation->end(Conversation::Outcome::ended, "");
    EXPECT_THAT(answer(forced), HasSubstr("OK"));
}

TEST_F(ConversationTest, tellsWhoSuspendedHowItEnded)
{
    const struct
    {
        Conversation::Outcome outcome;
        const char *message, *answer;
    } cases[] = {
        {Conversation::Outcome::suspended, "", "OK"},
        {Conversation::Outcome::ended, "killed", "not suspended: killed"},
        {Conversation::Outcome::ended, "", "not suspended: the VM ended"},
    };
    for (const auto &each : cases) {
        m_run = ::Run();
        run();
        const UniqueFd suspended = ask("suspend\r\n");
        m_conversation->end(each.outcome, each.message);
        EXPECT_THAT(answer(suspended), HasSubstr(each.answer));
    }
}

} // namespace
