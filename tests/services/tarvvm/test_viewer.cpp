// One viewer's channel, with the test at its other end.
#include "services/tarvvm/screens/viewer.h"

#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>

#include <optional>

namespace {

class ViewerTest : public LoopTest, protected ViewerHost, protected GuestInput
{
protected:
    ViewerTest() { connect(); }
    void connect()
    {
        Ends ends(SOCK_SEQPACKET | SOCKET_FLAGS);
        m_peer = std::move(ends.far);
        ViewerHost &host = *this;
        GuestInput &guest = *this;
        m_viewer =
            std::make_unique<Viewer>(m_loop, std::move(ends.near), SharedFrame::create(100, 100),
                                     host, guest, m_gate, m_pasteboard);
    }

    void say(uint32_t type, std::initializer_list<int32_t> arguments)
    {
        const display_packet packet = display_packet_of(type, arguments);
        ASSERT_EQ(::send(m_peer.get(), &packet, sizeof packet, MSG_NOSIGNAL),
                  ssize_t(sizeof packet));
        turn();
    }
    std::optional<display_packet> hear()
    {
        display_packet packet;
        if (recv(m_peer.get(), &packet, sizeof packet, 0) != ssize_t(sizeof packet))
            return std::nullopt;
        turn();
        return packet;
    }
    static Damage damage(ScreenRect rect)
    {
        Damage result(100, 100);
        result.add(rect);
        return result;
    }

    void viewerActivityChanged() override { m_log += "active "; }
    void key(uint32_t number, bool down) override
    {
        m_log += (down ? "+" : "-") + std::to_string(number) + " ";
    }
    void button(uint32_t number, bool down) override
    {
        m_log += (down ? "b+" : "b-") + std::to_string(number) + " ";
    }
    void moveTo(int32_t, int32_t) override {}
    void moveBy(int32_t, int32_t) override {}
    void viewerResize(int32_t, int32_t, bool) override { m_log += "size "; }
    void viewerGone() override { m_log += "gone "; }

    UniqueFd m_peer;
    InputGate m_gate{m_loop};
    // Of a guest without a port for an agent.
    GuestPasteboard m_pasteboard{m_loop, UniqueFd(), UniqueFd(), [](const std::string &) {}};
    std::string m_log;
    std::unique_ptr<Viewer> m_viewer;
};

TEST_F(ViewerTest, mergesDamageUntilTheLastOneIsAnswered)
{
    m_viewer->addDamage(damage({0, 0, 10, 10}));
    m_viewer->addDamage(damage({20, 0, 10, 10}));
    m_viewer->addDamage(damage({20, 5, 10, 10}));
    m_viewer->addDamage(damage({90, 90, 30, 30})); // partly outside
    const auto first = hear();
    ASSERT_TRUE(first);
    EXPECT_THAT(first->arg, testing::ElementsAre(0, 0, 10, 10, 1, 1, 0));
    EXPECT_FALSE(hear()) << "the first was not answered";
    say(DISPLAY_DAMAGE_DONE, {7}); // of no serial
    EXPECT_FALSE(hear());
    say(DISPLAY_DAMAGE_DONE, {1});
    const auto second = hear();
    const auto third = hear();
    ASSERT_TRUE(second && third);
    EXPECT_THAT(second->arg, testing::ElementsAre(20, 0, 10, 15, 2, 0, 0));
    EXPECT_THAT(third->arg, testing::ElementsAre(90, 90, 10, 10, 2, 1, 0));
}

TEST_F(ViewerTest, holdsDamageBackWhileHiddenAndForgetsItWithANewFrame)
{
    say(DISPLAY_ACTIVE, {0});
    m_viewer->addDamage(damage({0, 0, 10, 10}));
    EXPECT_FALSE(hear());
    say(DISPLAY_ACTIVE, {1});
    EXPECT_EQ(hear()->type, DISPLAY_DAMAGE);
    m_viewer->addDamage(damage({0, 0, 10, 10}));
    m_viewer->setFrame(SharedFrame::create(50, 40), {true, true});
    m_viewer->addDamage(damage({0, 0, 60, 60}));
    const auto mode = hear();
    ASSERT_TRUE(mode);
    EXPECT_EQ(mode->type, DISPLAY_MODE);
    EXPECT_THAT(mode->arg, testing::ElementsAre(50, 40, 1, 1, 0, 0, 0));
    EXPECT_THAT(hear()->arg, testing::ElementsAre(0, 0, 50, 40, 2, 1, 0));
    EXPECT_EQ(m_log, "active active ");
}

TEST_F(ViewerTest, neverWaitsAndNeverQueuesManyFrames)
{
    for (int i = 0; i < 500; i++) {
        m_viewer->setFrame(SharedFrame::create(64, 64), {});
        m_viewer->addDamage(damage({0, 0, 1, 1}));
    }
    turn();
    int packets = 0;
    while (const auto packet = hear())
        packets++;
    EXPECT_LT(packets, 20);
    EXPECT_FALSE(m_viewer->gone());
}

TEST_F(ViewerTest, releasesWhatItHoldsWhenItGoes)
{
    say(DISPLAY_KEY, {0x1e, 1});
    say(DISPLAY_KEY, {0xc8, 1});
    say(DISPLAY_KEY, {0x1e, 0});
    say(DISPLAY_POINTER_ABS, {5, 5, 0x7f}); // the wheel's bits are no buttons
    say(DISPLAY_POINTER_REL, {1, 1, 0x1});
    say(DISPLAY_WHEEL, {-2, 3});
    m_peer.reset();
    turn();
    EXPECT_EQ(m_log, "+30 +200 -30 b+0 b+1 b+2 b+5 b+6 b-1 b-2 b-5 b-6 b+3 b-3 b+3 b-3 "
                     "-200 b-0 gone ");
}

TEST_F(ViewerTest, isNotReadWhileItsInputWaitsAndIsStillSeenToGo)
{
    for (unsigned i = 0; i < InputGate::UNANSWERED_MAX; i++)
        m_gate.sent();
    const display_packet press{DISPLAY_KEY, {30, 1}};
    bool full = false;
    for (int i = 0; i < 100000 && !full; i++) {
        full = ::send(m_peer.get(), &press, sizeof press, MSG_NOSIGNAL) < 0;
        turn();
    }
    EXPECT_TRUE(full && errno == EAGAIN) << "the channel fills, and the viewer knows";
    EXPECT_FALSE(m_viewer->gone());
    EXPECT_EQ(m_log, "");
    m_peer.reset();
    turn();
    EXPECT_TRUE(m_viewer->gone());
    EXPECT_EQ(m_log, "gone ");
}

TEST_F(ViewerTest, hangsUpOnViewersThatBreakTheRules)
{
    const auto refused = [this] {
        std::optional<display_packet> packet;
        while ((packet = hear()) && packet->type != DISPLAY_CLOSED)
            ;
        return packet && packet->arg[0] == DISPLAY_CLOSE_REFUSED && m_viewer->gone();
    };
    const display_packet cases[] = {{0, {}},
                                    {DISPLAY_DAMAGE, {}},
                                    {99, {}},
                                    {DISPLAY_KEY, {0, 1}},
                                    {DISPLAY_KEY, {0x100, 1}},
                                    {DISPLAY_RESIZE, {0, 100}},
                                    {DISPLAY_RESIZE, {100, -1}},
                                    {DISPLAY_PASTEBOARD_SEND, {-1}},
                                    {DISPLAY_PASTEBOARD_SEND, {10}}}; // without the memory
    for (const display_packet &packet : cases) {
        ::send(m_peer.get(), &packet, sizeof packet, 0);
        turn();
        EXPECT_TRUE(refused()) << packet.type << " " << packet.arg[0];
        connect();
    }
    ::send(m_peer.get(), "abc", 3, 0);
    turn();
    EXPECT_TRUE(refused()) << "a short packet";
    connect();
    const display_packet move{DISPLAY_POINTER_REL, {1, 1}};
    bool flooded = false;
    for (int i = 0; i < 200000 && !flooded; i++) {
        flooded = ::send(m_peer.get(), &move, sizeof move, MSG_NOSIGNAL) < 0 && errno != EAGAIN;
        sd_event_run(m_loop, 0);
    }
    EXPECT_TRUE(refused()) << "a flood";
}

} // namespace
