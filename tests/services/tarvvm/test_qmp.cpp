// The machine protocol against a scripted QEMU.
#include "services/tarvvm/machine/qmp.h"

#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>

namespace {

TEST(QmpLines, takesBytesOneAtATimeAndRefusesOtherThings)
{
    QmpLines lines;
    std::vector<JsonTree> objects;
    for (const char c : std::string("{\"QMP\": {}}\r\n\r\n{\"a\":\"}\\n{\"}\n{\"rest\""))
        ASSERT_TRUE(lines.feed({&c, 1}, &objects));
    ASSERT_EQ(objects.size(), 2u);
    EXPECT_STREQ(json_find_str(objects[1].get(), "a", ""), "}\n{");
    for (const char *garbage : {"hello\n", "[1]\n", "{\"a\":1} x\n", "{\n"})
        EXPECT_FALSE(QmpLines().feed(garbage, &objects)) << garbage;
    EXPECT_FALSE(QmpLines().feed(std::string(QMP_LINE_MAX + 1, ' '), &objects));
}

class QmpTest : public LoopTest
{
protected:
    QmpTest()
    {
        Qmp::Handlers handlers;
        handlers.ready = [this] { m_ready++; };
        handlers.event = [this](const std::string &name, const json *) { m_events += name + " "; };
        handlers.closed = [this](const std::string &reason) { m_closed = reason; };
        m_qmp = std::make_unique<Qmp>(m_loop, std::move(m_ends.near), std::move(handlers));
    }
    // The engine says something, and the loop handles all there is.
    void say(const std::string &text)
    {
        ASSERT_EQ(write(m_ends.far.get(), text.data(), text.size()), ssize_t(text.size()));
        turn();
    }
    std::string heard()
    {
        char buffer[4096];
        const ssize_t length = recv(m_ends.far.get(), buffer, sizeof buffer, MSG_DONTWAIT);
        return length > 0 ? std::string(buffer, size_t(length)) : "";
    }

    Ends m_ends{SOCK_STREAM | SOCK_CLOEXEC};
    int m_ready = 0;
    std::string m_events, m_closed;
    std::unique_ptr<Qmp> m_qmp;
};

TEST_F(QmpTest, waitsForTheGreetingAndMatchesAnswersByNumber)
{
    say("{\"QMP\":{}}\r\n");
    EXPECT_THAT(heard(), testing::HasSubstr("qmp_capabilities"));
    EXPECT_EQ(m_ready, 0);
    say("{\"return\":{},\"id\":1}\r\n");
    EXPECT_EQ(m_ready, 1);
    std::string log;
    m_qmp->execute("one", [&](const json *result, const std::string &) {
        log += result ? "one " : "failed ";
    });
    m_qmp->execute("two", [&](const json *, const std::string &error) { log += error + " "; });
    say("{\"event\":\"STOP\"}\n{\"error\":{\"desc\":\"no\"},\"id\":3}\n{\"return\":{},\"id\":99}\n"
        "{\"return\":{},\"id\":2}\n");
    EXPECT_EQ(log, "no one ");
    EXPECT_EQ(m_events, "STOP ");
}

TEST_F(QmpTest, failsWhatIsUnderWayWhenQemuGoesOrTalksNonsense)
{
    std::string error;
    m_qmp->execute("stop", [&](const json *, const std::string &why) { error = why; });
    say("<html>\n");
    EXPECT_EQ(error, "QEMU is gone");
    EXPECT_THAT(m_closed, testing::HasSubstr("something else than JSON"));
    m_qmp->execute("stop", [&](const json *, const std::string &why) { error = "again " + why; });
    EXPECT_EQ(error, "again QEMU is gone");
}

} // namespace
