#include "tarvhv/display/packet_socket.h"
#include "tarvhv/display/packets.h"
#include "tests/support/scratch.h"
#include "tests/tarvhv/display/memory_screen.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

DisplayState screen(uint32_t width, uint32_t height)
{
    return DisplayState(*MappedFrame::map(screen_memory(width, height).get()), false, true, 0,
                        true);
}

TEST(MappedFrame, refusesMemoryThatDoesNotHoldWhatItSays)
{
    const display_fbctl good = screen_control(8, 4);
    const uint64_t size = DISPLAY_PIXELS_OFFSET + 8 * 4 * 4;
    EXPECT_TRUE(MappedFrame::map(screen_memory(good, size).get()));
    EXPECT_FALSE(MappedFrame::map(unsealed_memory(size).get()));
    EXPECT_EQ(errno, EPERM);
    EXPECT_FALSE(MappedFrame::map(screen_memory(good, size - 1).get()));
    EXPECT_EQ(errno, EPROTO);
    EXPECT_FALSE(MappedFrame::map(screen_memory(good, 16).get()));
    EXPECT_FALSE(MappedFrame::map(-1));
    EXPECT_FALSE(MappedFrame::map(Ends().near.get()));

    const std::pair<uint32_t display_fbctl::*, uint32_t> changes[] = {
        {&display_fbctl::magic, DISPLAY_MAGIC + 1},
        {&display_fbctl::version, DISPLAY_VERSION + 1},
        {&display_fbctl::width, 0},
        {&display_fbctl::height, DISPLAY_HEIGHT_MAX + 1},
        {&display_fbctl::height, DISPLAY_HEIGHT_MAX},
        {&display_fbctl::stride, 31},
        {&display_fbctl::stride, 28},
        {&display_fbctl::stride, UINT32_MAX - 3}};
    for (const auto &[member, value] : changes) {
        display_fbctl bad = good;
        bad.*member = value;
        EXPECT_FALSE(MappedFrame::map(screen_memory(bad, size).get())) << value;
    }
}

TEST(DisplayState, clipsAndMergesDamage)
{
    DisplayState state = screen(100, 50);
    EXPECT_TRUE(state.feed(display_packet_of(DISPLAY_DAMAGE, {-10, -10, 20, 20, 7, 0}), {}));
    EXPECT_TRUE(state.feed(display_packet_of(DISPLAY_DAMAGE, {2, 2, 3, 3, 7, 0}), {}));
    EXPECT_TRUE(
        state.feed(display_packet_of(DISPLAY_DAMAGE, {90, 40, INT32_MAX, INT32_MAX, 7, 0}), {}));
    EXPECT_FALSE(state.takeSerial()) << "the last rectangle is still to come";
    EXPECT_TRUE(state.feed(display_packet_of(DISPLAY_DAMAGE, {200, 0, 5, -5, 7, 1}), {}));
    const std::vector<ScreenRect> damage = state.damage().take().rects();
    ASSERT_EQ(damage.size(), 2u);
    EXPECT_EQ(damage[0].width, 10);
    EXPECT_EQ(damage[0].x, 0);
    EXPECT_EQ(damage[1].width, 10);
    EXPECT_EQ(damage[1].height, 10);
    EXPECT_EQ(state.takeSerial(), 7);
    EXPECT_FALSE(state.takeSerial());

    for (int i = 0; i < 1000; i++)
        state.feed(display_packet_of(DISPLAY_DAMAGE, {i % 97, i % 43, 1, 1, i, 0}), {});
    EXPECT_LE(state.damage().rects().size(), Damage::MAX);
}

TEST(DisplayState, keepsWhatItHasWhenAPacketIsWrong)
{
    DisplayState state = screen(100, 50);
    const UniqueFd small = screen_memory(screen_control(200, 200), DISPLAY_PIXELS_OFFSET);
    const std::pair<display_packet, bool> wrong[] = {
        {display_packet_of(DISPLAY_MODE, {200, 200, 0, 0}), false},
        {display_packet_of(DISPLAY_MODE, {200, 200, 0, 0}), true},
        {display_packet_of(DISPLAY_CURSOR, {64, 64, 0, 0}), true},
        {display_packet_of(DISPLAY_CURSOR, {-1, 64, 0, 0}), false},
        {display_packet_of(DISPLAY_CURSOR, {1 << 16, 1 << 16, 0, 0}), false},
        {display_packet_of(DISPLAY_PASTEBOARD, {-1}), false},
        {display_packet_of(DISPLAY_PASTEBOARD, {4097}), true},
        {display_packet_of(DISPLAY_PASTEBOARD, {INT32_MAX}), true}};
    for (const auto &[packet, with_memory] : wrong)
        EXPECT_FALSE(state.feed(packet, UniqueFd(with_memory ? dup(small.get()) : -1)))
            << packet.type << " " << packet.arg[0];
    EXPECT_EQ(state.buffer().width(), 100);
    EXPECT_FALSE(state.takeChanges().cursor);

    EXPECT_TRUE(state.feed(display_packet_of(DISPLAY_MODE, {64, 32, 1, 0}), screen_memory(64, 32)));
    EXPECT_EQ(state.buffer().width(), 64);
    EXPECT_TRUE(state.hdpi());
    EXPECT_FALSE(state.liveResize());
    EXPECT_TRUE(state.takeChanges().mode);
    EXPECT_TRUE(state.damage().all());
}

class Channel : public testing::Test
{
protected:
    // Sends until the channel is full.
    void block(PacketSender &sender)
    {
        while (sender.waiting() == 0)
            ASSERT_TRUE(sender.send(display_packet_of(DISPLAY_POINTER_REL, {0, 0, 0})));
    }
    std::vector<display_packet> drain(PacketSender &sender)
    {
        std::vector<display_packet> packets;
        for (bool waits = true; waits;) {
            waits = sender.waiting() != 0;
            EXPECT_TRUE(sender.flush());
            display_packet packet;
            while (recv(m_ends.far.get(), &packet, sizeof packet, 0) == ssize_t(sizeof packet))
                packets.push_back(packet);
        }
        return packets;
    }
    Ends m_ends{SOCK_SEQPACKET | SOCK_NONBLOCK};
};

TEST_F(Channel, mergesWhatASilentSupervisorDoesNotRead)
{
    PacketSender sender(m_ends.near.get());
    block(sender);
    for (int i = 0; i < 10000; i++) {
        sender.send(display_packet_of(DISPLAY_POINTER_ABS, {i, i, 0}));
        sender.send(display_packet_of(DISPLAY_DAMAGE_DONE, {i}));
    }
    EXPECT_LT(sender.waiting(), 10u);
    const std::vector<display_packet> got = drain(sender);
    EXPECT_EQ(got[got.size() - 2].arg[0], 9999);
    EXPECT_EQ(got.back().arg[0], 9999);
}

TEST_F(Channel, neverLeavesAKeyPressed)
{
    PacketSender sender(m_ends.near.get());
    EXPECT_TRUE(sender.send(display_packet_of(DISPLAY_KEY, {1, 1})));
    block(sender);
    for (int i = 0; i < 5000; i++) {
        sender.send(display_packet_of(DISPLAY_KEY, {2 + i % 100, 1}));
        sender.send(display_packet_of(DISPLAY_KEY, {2 + i % 100, 0}));
        sender.send(display_packet_of(DISPLAY_WHEEL, {1, 0}));
    }
    sender.send(display_packet_of(DISPLAY_KEY, {1, 0}));
    EXPECT_LT(sender.waiting(), 2 * PacketSender::WAITING_MAX);
    bool pressed[256] = {};
    int wheel = 0;
    for (const display_packet &each : drain(sender)) {
        if (each.type == DISPLAY_KEY)
            pressed[each.arg[0]] = each.arg[1] != 0;
        if (each.type == DISPLAY_WHEEL)
            wheel += each.arg[0];
    }
    for (const bool each : pressed)
        EXPECT_FALSE(each);
    EXPECT_EQ(wheel, 5000);
}

TEST_F(Channel, keepsTheLastWordOfASupervisorThatDidNotReadItAll)
{
    const display_packet word = display_packet_of(DISPLAY_CLOSED, {DISPLAY_CLOSE_REFUSED});
    PacketSender sender(m_ends.near.get());
    ASSERT_TRUE(sender.send(display_packet_of(DISPLAY_KEY, {1, 1})));
    ASSERT_EQ(send(m_ends.far.get(), &word, sizeof word, 0), ssize_t(sizeof word));
    m_ends.far.reset();
    display_packet got{};
    std::vector<UniqueFd> none;
    ASSERT_EQ(receive_with_descriptors(m_ends.near.get(), &got, sizeof got, &none),
              ssize_t(sizeof got));
    EXPECT_EQ(got.type, DISPLAY_CLOSED);
    EXPECT_EQ(receive_with_descriptors(m_ends.near.get(), &got, sizeof got, &none), 0);
}

} // namespace
