// Input on its way to an engine that is slow, or that answers nothing.
#include "services/tarvvm/screens/engine_input.h"
#include "services/tarvvm/screens/viewer_input.h"

#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>

#include <chrono>

namespace {

using std::chrono::steady_clock;

// A guest that is told what is written down, and an engine that answers when the test says so.
class InputTest : public LoopTest, protected GuestInput
{
protected:
    void key(uint32_t number, bool down) override
    {
        note((down ? "+" : "-") + std::to_string(number));
    }
    void button(uint32_t number, bool down) override
    {
        note((down ? "b+" : "b-") + std::to_string(number));
    }
    void moveTo(int32_t x, int32_t y) override
    {
        note(std::to_string(x) + "," + std::to_string(y));
    }
    void moveBy(int32_t dx, int32_t dy) override { moveTo(dx, dy); }
    void note(const std::string &what)
    {
        m_gate.sent();
        m_told.push_back(what);
    }
    void close()
    {
        for (; m_taken < InputGate::UNANSWERED_MAX; m_taken++)
            m_gate.sent();
    }
    // Answers all that went out, until nothing more comes.
    void answerAll()
    {
        while (m_taken > 0 || m_answered < m_told.size()) {
            m_taken > 0 ? m_taken-- : m_answered++;
            m_gate.answered();
            turnUntil([this] { return m_told.size() > m_answered; });
        }
    }
    // A closed gate opens with the time, too.
    void turnUntil(const std::function<bool()> &done)
    {
        for (int i = 0; i < 50 && !done(); i++)
            sd_event_run(m_loop, 1000);
    }
    bool say(uint32_t type, std::initializer_list<int32_t> arguments)
    {
        return m_input.handle(display_packet_of(type, arguments));
    }

    InputGate m_gate{m_loop};
    std::vector<std::string> m_told;
    size_t m_taken = 0, m_answered = 0;
    int m_room = 0;
    GuestInput &m_guest = *this;
    ViewerInput m_input{m_guest, m_gate, [this] { m_room++; }};
};

TEST_F(InputTest, waitsForTheEngineJoinsMotionAndLosesNoKey)
{
    close();
    for (int i = 0; i < 1000; i++) {
        say(DISPLAY_WHEEL, {-32});
        say(DISPLAY_WHEEL, {10});
    }
    say(DISPLAY_KEY, {30, 1});
    for (int i = 0; i < 1000; i++)
        say(DISPLAY_POINTER_ABS, {i, 2 * i, 0});
    say(DISPLAY_POINTER_ABS, {5, 5, 1}); // with a button: no motion takes its place
    say(DISPLAY_POINTER_ABS, {6, 6, 0});
    say(DISPLAY_KEY, {30, 0});
    EXPECT_FALSE(m_input.full());
    EXPECT_TRUE(m_told.empty());
    answerAll();
    ASSERT_LE(m_told.size(), 2u * ViewerInput::WHEEL_STEPS_MAX + 7);
    EXPECT_THAT(std::vector(m_told.end() - 7, m_told.end()),
                testing::ElementsAre("+30", "999,1998", "5,5", "b+0", "6,6", "b-0", "-30"));
    EXPECT_EQ(m_told.front(), "b+3");
    EXPECT_EQ(m_told[1], "b-3") << "a step is never left half done";
}

TEST_F(InputTest, saysWhenItHoldsTooMuchAndReleasesWhatTheGuestKnowsOf)
{
    say(DISPLAY_KEY, {42, 1});
    say(DISPLAY_POINTER_REL, {1, 1, 1});
    close();
    m_told.clear();
    int32_t number = 0;
    while (!m_input.full())
        ASSERT_TRUE(say(DISPLAY_KEY, {1 + number++ % 40, 1}));
    EXPECT_EQ(number, int32_t(ViewerInput::WAITING_MAX));
    EXPECT_EQ(m_room, 0);
    for (int i = 0; i < 4; i++) // the three of before, and one
        m_gate.answered();
    turnUntil([this] { return m_room != 0; });
    EXPECT_EQ(m_room, 1);
    EXPECT_FALSE(m_input.full());
    m_told.clear();
    m_input.releaseAll();
    EXPECT_THAT(m_told, testing::ElementsAre("-1", "-42", "b-0"));
    for (unsigned i = 0; i < InputGate::UNANSWERED_MAX; i++)
        m_gate.answered();
    turnUntil([] { return false; });
    EXPECT_EQ(m_told.size(), 3u) << "what waited is forgotten";
}

class Always : public InputGate::Waiter
{
public:
    Always(InputGate &gate, std::vector<int> &order, int name)
        : m_gate(gate), m_order(order), m_name(name)
    {
    }
    bool sendNext() override
    {
        m_gate.sent();
        m_order.push_back(m_name);
        return true;
    }

private:
    InputGate &m_gate;
    std::vector<int> &m_order;
    int m_name;
};

TEST_F(InputTest, takesTurnsAndKeepsToARateHoweverFastTheEngineIs)
{
    std::vector<int> order;
    Always first(m_gate, order, 1), second(m_gate, order, 2);
    const auto begun = steady_clock::now();
    m_gate.wait(&first);
    m_gate.wait(&second);
    EXPECT_EQ(order.size(), InputGate::UNANSWERED_MAX);
    for (size_t answered = 0; order.size() < 500;) {
        for (; answered < order.size(); answered++)
            m_gate.answered();
        sd_event_run(m_loop, 1000);
    }
    const std::chrono::duration<double> passed = steady_clock::now() - begun;
    EXPECT_LE(double(order.size()), InputGate::MESSAGES_AT_ONCE + 2 * InputGate::UNANSWERED_MAX +
                                        passed.count() * InputGate::MESSAGES_PER_SECOND);
    for (size_t i = InputGate::UNANSWERED_MAX + 1; i < order.size(); i++)
        ASSERT_NE(order[i], order[i - 1]) << i;
    m_gate.forget(&first);
    m_gate.forget(&second);
}

// QEMU's end of the display connection, which takes messages and may answer them.
class Engine
{
public:
    Engine(sd_event *loop, UniqueFd socket)
    {
        sd_bus_new(&m_bus);
        sd_bus_set_fd(m_bus, socket.get(), socket.get());
        socket.release();
        sd_bus_set_server(m_bus, 1, SD_ID128_MAKE(1, 2, 3, 4, 5, 6, 7, 8, 9, a, b, c, d, e, f, 0));
        sd_bus_negotiate_fds(m_bus, 1);
        sd_bus_add_filter(
            m_bus, nullptr,
            [](sd_bus_message *message, void *self, sd_bus_error *) {
                Engine *engine = static_cast<Engine *>(self);
                engine->messages++;
                if (engine->answers)
                    sd_bus_reply_method_return(message, "");
                return 1;
            },
            this);
        sd_bus_start(m_bus);
        sd_bus_attach_event(m_bus, loop, 0);
    }
    ~Engine() { sd_bus_close_unref(m_bus); }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;
    unsigned messages = 0;
    bool answers = false;

private:
    sd_bus *m_bus = nullptr;
};

TEST_F(InputTest, ofEveryKindStopsAtAnEngineThatAnswersNothing)
{
    Ends ends(SOCK_STREAM | SOCKET_FLAGS);
    Engine engine(m_loop, std::move(ends.far));
    Console console{0, 640, 480, true};
    const std::unique_ptr<DisplayBus> bus = DisplayBus::open(m_loop, std::move(ends.near), {});
    ASSERT_TRUE(bus);
    EngineInput guest(*bus, console, nullptr, m_gate);
    ViewerInput input(guest, m_gate, [] {});
    const auto flood = [&] {
        for (int32_t i = 0; i < 20 && !input.full(); i++) {
            input.handle(display_packet_of(DISPLAY_KEY, {30, i % 2}));
            input.handle(display_packet_of(DISPLAY_WHEEL, {32}));
            input.handle(display_packet_of(DISPLAY_POINTER_ABS, {i, i, i % 2 * 7}));
            console.absolute = !console.absolute;
            input.handle(display_packet_of(DISPLAY_POINTER_REL, {i, i, 0}));
        }
        turnUntil([] { return false; });
    };
    flood();
    flood();
    EXPECT_GE(engine.messages, InputGate::UNANSWERED_MAX);
    EXPECT_LE(engine.messages, InputGate::UNANSWERED_MAX + ViewerInput::BUTTON_COUNT);
    EXPECT_TRUE(input.full());
}

} // namespace
