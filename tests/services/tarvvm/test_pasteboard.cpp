// The guest's pasteboard, with the test as the guest's agent and as two viewers.
#include "services/tarvvm/pasteboard/guest_pasteboard.h"
#include "services/tarvvm/pasteboard/pasteboard_text.h"

#include "tarvhv/cli2/display_protocol.h"
#include "tests/services/tarvvm/loop_test.h"
#include "tests/tarvhv/display/memory_screen.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const std::string PNG = "\x89PNG\r\n\x1a\nand so on";
constexpr uint32_t BOTH = DISPLAY_CAP_COPY | DISPLAY_CAP_PASTE;

std::string chunk(const std::string &bytes)
{
    return agent_number(1) + agent_number(uint32_t(bytes.size())) + bytes;
}

std::string message(uint32_t type, const std::string &body)
{
    return agent_number(1) + agent_number(type) + agent_number(0) + agent_number(0) +
           agent_number(uint32_t(body.size())) + body;
}

std::string contents(AgentKind kind, const std::string &bytes)
{
    return message(AGENT_CLIPBOARD, agent_number(0) + agent_number(kind) + bytes);
}

class Reader : public PasteboardReader
{
public:
    void pasteboardCapsChanged(uint32_t changed) override { caps = changed; }
    void pasteboardArrived(std::shared_ptr<const SealedMemory> archive) override
    {
        std::string bytes(archive->size, '\0');
        EXPECT_EQ(pread(archive->fd.get(), bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
        PasteboardContents read;
        EXPECT_TRUE(pasteboard_archive_read(bytes, &read));
        EXPECT_GE(platform_memory_size(archive->fd.get(), /*sealed=*/true), 0);
        arrived.push_back(read.text + (read.png.empty() ? "" : " with a picture"));
    }
    uint32_t caps = 0;
    std::vector<std::string> arrived;
};

class Pasteboard : public LoopTest
{
protected:
    Pasteboard()
    {
        m_pasteboard.add(&m_reader);
        m_pasteboard.add(&m_other);
    }
    // The agent sends bytes, as much at a time as there is room for.
    void send(std::string bytes)
    {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(m_ends.far.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            ASSERT_TRUE(sent > 0 || errno == EAGAIN);
            bytes.erase(0, size_t(std::max<ssize_t>(sent, 0)));
            turn();
        }
    }
    void say(uint32_t type, const std::string &body) { send(chunk(message(type, body))); }
    void announce(uint32_t more = 0, bool ask = true)
    {
        say(AGENT_CAPABILITIES,
            agent_number(ask) + agent_number(AGENT_CAP_BY_DEMAND | AGENT_CAP_SELECTION | more));
    }
    void copy(std::initializer_list<uint32_t> kinds)
    {
        std::string body = agent_number(0);
        for (const uint32_t kind : kinds)
            body += agent_number(kind);
        say(AGENT_GRAB, body);
    }
    // What the agent was told since the last time: "type:body" without selections, shortened.
    std::vector<std::string> told()
    {
        std::string bytes(1 << 20, '\0');
        std::vector<AgentMessage> messages;
        AgentDecoder decoder;
        decoder.setContentsMax(64 << 20);
        for (;;) {
            turn();
            const ssize_t length = recv(m_ends.far.get(), bytes.data(), bytes.size(), 0);
            if (length <= 0)
                break;
            EXPECT_TRUE(decoder.feed({bytes.data(), size_t(length)}, &messages));
        }
        std::vector<std::string> result;
        for (const AgentMessage &each : messages) {
            std::string_view body = each.body;
            uint32_t number = 0;
            agent_take_number(&body, &number);
            std::string line = std::to_string(each.type) + ":";
            if (each.type == AGENT_CAPABILITIES)
                line += number ? "ask" : "tell";
            else if (each.type == AGENT_CLIPBOARD && agent_take_number(&body, &number))
                line += std::to_string(number) + " " + std::string(body);
            else
                while (agent_take_number(&body, &number))
                    line += std::to_string(number);
            result.push_back(line);
        }
        return result;
    }
    bool give(const PasteboardContents &given)
    {
        const std::string bytes = pasteboard_archive_write(given);
        return m_pasteboard.give(platform_memory_of("test", bytes).fd, bytes.size());
    }

    Ends m_ends{SOCK_STREAM | SOCKET_FLAGS};
    std::string m_log;
    Reader m_reader, m_other;
    GuestPasteboard m_pasteboard{m_loop, std::move(m_ends.near), UniqueFd(dup(m_ends.far.get())),
                                 [this](const std::string &line) { m_log += line + "\n"; }};
};

TEST_F(Pasteboard, givesEachViewerWhatTheGuestCopiesOnceAndWhenAskedToAgain)
{
    m_pasteboard.ask(&m_reader, /*polling=*/true);
    announce();
    EXPECT_EQ(m_reader.caps, BOTH);
    EXPECT_THAT(told(), ElementsAre("6:ask"));
    announce(0, /*ask=*/false);
    copy({AGENT_TEXT, 3, AGENT_PNG});
    EXPECT_THAT(told(), IsEmpty()) << "nobody has asked";
    m_pasteboard.ask(&m_reader, true);
    m_pasteboard.ask(&m_reader, true);
    m_pasteboard.ask(&m_other, true);
    EXPECT_THAT(told(), ElementsAre("8:1"));
    send(chunk(contents(AGENT_TEXT, std::string("a\xff\r\nb\0", 6))));
    EXPECT_THAT(told(), ElementsAre("8:2"));
    send(chunk(contents(AGENT_PNG, PNG)));
    for (int i = 0; i < 3; i++)
        m_pasteboard.ask(&m_reader, true);
    m_pasteboard.ask(&m_other, /*polling=*/false);
    const std::string text = "a\xef\xbf\xbd\r\nb with a picture";
    EXPECT_THAT(m_reader.arrived, ElementsAre(text));
    EXPECT_THAT(m_other.arrived, ElementsAre(text, text));
    EXPECT_THAT(told(), IsEmpty());

    Reader late;
    m_pasteboard.add(&late);
    m_pasteboard.ask(&late, true);
    EXPECT_THAT(late.arrived, IsEmpty()) << "what was copied before it came";
    m_pasteboard.remove(&late);

    copy({AGENT_TEXT}); // soon after the other viewer asked for a copy
    EXPECT_THAT(told(), ElementsAre("8:1"));
    copy({AGENT_TEXT}); // and again, before the answer
    send(chunk(contents(AGENT_TEXT, "of before")));
    send(chunk(contents(AGENT_TEXT, "of now")));
    EXPECT_EQ(m_other.arrived.back(), "of now");
    EXPECT_EQ(m_reader.arrived.size(), 1u);
    say(AGENT_RELEASE, agent_number(0));
    m_pasteboard.ask(&m_reader, false);
    EXPECT_EQ(m_reader.arrived.size(), 1u) << "the guest has nothing any more";
}

TEST_F(Pasteboard, offersTheGuestWhatAViewerGivesUntilItCopiesItself)
{
    EXPECT_TRUE(give({"too early", ""})) << "no fault of the viewer";
    announce(AGENT_CAP_CRLF);
    told();
    EXPECT_TRUE(give({"a\nb\r\nc", PNG}));
    EXPECT_TRUE(give({"a\nb\r\nc", PNG}));
    EXPECT_THAT(told(), ElementsAre("7:12")) << "the same is offered once";
    say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_TEXT));
    say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_PNG));
    say(AGENT_REQUEST, agent_number(1) + agent_number(AGENT_TEXT)); // another selection
    say(AGENT_REQUEST, agent_number(0) + agent_number(3));
    EXPECT_THAT(told(), ElementsAre("4:1 a\r\nb\r\nc", "4:2 " + PNG, "4:0 "));
    announce(); // the agent is another now
    EXPECT_THAT(told(), ElementsAre("6:tell", "7:12"));

    copy({AGENT_TEXT});
    say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_TEXT));
    EXPECT_THAT(told(), ElementsAre("4:0 "));
    m_pasteboard.ask(&m_reader, true);
    send(chunk(contents(AGENT_TEXT, "the guest's")));
    told();
    EXPECT_TRUE(give({"the guest's", ""}));
    EXPECT_THAT(told(), IsEmpty()) << "the guest's own does not come back to it";
    const std::string big(5000, 'x');
    EXPECT_TRUE(give({big, ""}));
    say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_TEXT));
    EXPECT_THAT(told(), ElementsAre("7:1", "4:1 " + big));
    m_pasteboard.ask(&m_reader, false);
    EXPECT_THAT(m_reader.arrived, ElementsAre("the guest's")) << "it has nothing of its own";

    const std::string huge(4 << 20, 'y'); // more than fits the port
    EXPECT_TRUE(give({huge, ""}));
    for (int i = 0; i < 3; i++)
        say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_TEXT));
    EXPECT_TRUE(give({"newer", ""}));
    EXPECT_THAT(told(), ElementsAre("7:1", "4:1 " + huge, "4:0 ", "4:0 ", "7:1"))
        << "what waits is not kept for a guest that is slow";

    const std::string ten(10, '\0');
    EXPECT_FALSE(m_pasteboard.give(unsealed_memory(10), 10));
    EXPECT_FALSE(m_pasteboard.give(platform_memory_of("test", ten).fd, 11));
    EXPECT_TRUE(m_pasteboard.give(platform_memory_of("test", ten).fd, 10));
    EXPECT_THAT(m_log, HasSubstr("10 bytes is no archive"));
}

TEST_F(Pasteboard, garbageAndFloodsCostTheGuestItsPasteboardAndNothingElse)
{
    const std::string broken[] = {
        agent_number(7) + agent_number(20),
        agent_number(1) + agent_number(0),
        agent_number(1) + agent_number(UINT32_MAX),
        chunk(std::string(20, '\2')),
        chunk(message(AGENT_GRAB, std::string(AGENT_CONTROL_MAX + 1, '\0'))),
        chunk(message(AGENT_REQUEST, "abc")),
        chunk(message(AGENT_CAPABILITIES, "")),
        chunk(message(AGENT_CLIPBOARD, agent_number(0)))};
    for (const std::string &bytes : broken) {
        announce();
        EXPECT_EQ(m_reader.caps, BOTH);
        send(bytes);
        EXPECT_EQ(m_reader.caps, 0u) << bytes.size();
        announce(); // not listened to
        EXPECT_EQ(m_reader.caps, 0u);
        m_pasteboard.setPortOpen(false);
        EXPECT_THAT(told(), IsEmpty()) << "what it left unread is taken back";
        m_pasteboard.setPortOpen(true);
        EXPECT_THAT(told(), ElementsAre("6:ask"));
    }
    send(broken[0]);
    std::vector<std::string> asked;
    for (int i = 0; i < 30 && asked.empty(); i++) { // seconds
        sd_event_run(m_loop, 1000000);
        asked = told();
    }
    EXPECT_THAT(asked, ElementsAre("6:ask")) << "after a while, without the port being opened anew";
    announce(0, false);
    EXPECT_EQ(m_reader.caps, BOTH);
    // What is of no use is passed over: other ports and types, contents that nobody asked for.
    send(agent_number(2) + agent_number(3) + "abc" + chunk(message(99, std::string(70000, 'x'))) +
         chunk(contents(AGENT_TEXT, std::string(1 << 20, 'x'))));
    copy({AGENT_TEXT});
    m_pasteboard.ask(&m_reader, true);
    send(chunk(contents(AGENT_TEXT, std::string(DISPLAY_PASTEBOARD_MAX, 'x'))));
    EXPECT_THAT(m_reader.arrived, IsEmpty());
    EXPECT_THAT(m_log, HasSubstr("too large: 33554432 bytes"));
    EXPECT_EQ(m_reader.caps, BOTH);
    // Offers without end, which are not read either: the last one stands for all.
    for (int i = 0; i < 20000; i++)
        EXPECT_TRUE(give({std::to_string(i), ""}));
    EXPECT_LT(told().size(), 2000u);
    // Requests without end, whose answers are not read.
    EXPECT_TRUE(give({std::string(1 << 20, 'x'), ""}));
    for (int i = 0; i < 200 && m_reader.caps != 0; i++)
        say(AGENT_REQUEST, agent_number(0) + agent_number(AGENT_TEXT));
    EXPECT_EQ(m_reader.caps, 0u);
}

TEST(AgentDecoder, putsMessagesTogetherHoweverTheyAreCut)
{
    AgentEncoder encoder;
    encoder.add(AGENT_REQUEST, "");
    encoder.add(AGENT_CLIPBOARD, "12345678", std::make_shared<const std::string>(5000, 'x'));
    std::string stream;
    for (size_t before = 0; encoder.next(&stream); before = stream.size())
        EXPECT_LE(stream.size() - before, AGENT_CHUNK_MAX + 8);
    for (const size_t step : {size_t{1}, size_t{7}, stream.size()}) {
        AgentDecoder decoder;
        decoder.setContentsMax(5008);
        std::vector<AgentMessage> messages;
        for (size_t i = 0; i < stream.size(); i += step)
            EXPECT_TRUE(decoder.feed(std::string_view(stream).substr(i, step), &messages));
        ASSERT_EQ(messages.size(), 2u);
        EXPECT_EQ(messages[1].body, "12345678" + std::string(5000, 'x'));
        EXPECT_FALSE(decoder.inside());
    }
}

TEST(PasteboardArchive, readsWhatViewersWriteAndRefusesTheRest)
{
    const std::string start = "\xa2\x67version\x01\x65items";
    const std::pair<std::string, const char *> cases[] = {
        {start + "\x80", ""},
        {start + "\x82\x82\x63url\x61y\x82\x63url\x61z", "y\nz"},
        {start + "\x82\x82\x63url\x61y\x82\x64text\x61z", "z"},
        {start + "\x9f\x82\x64text\x7f\x61y\x61z\xff\xff", "yz"},
        {start + "\x82\x82\x64html\xa1\x61y\x81\xc1\xf5\x82\x64text\x61z", "z"},
        {"\xa2\x67version\x02\x65items\x80", nullptr},
        {start + "\x81\x82\x64text\x62z", nullptr},
        {start + "\x81\x82\x63png\x61z", nullptr},
        {start + "\x81\x82\x64text\x5b\xff\xff\xff\xff\xff\xff\xff\xff", nullptr},
        {start + "\x80z", nullptr},
        {start + "\x81\x82\x61z" + std::string(100000, '\x81') + "\x80", nullptr},
        {"", nullptr},
    };
    for (const auto &[bytes, text] : cases) {
        PasteboardContents read;
        EXPECT_EQ(pasteboard_archive_read(bytes, &read), text != nullptr) << bytes;
        EXPECT_TRUE(!text || read.text == text) << bytes;
    }
    EXPECT_EQ(pasteboard_text("\xf0\x9d\x84\x9e \xed\xa0\x80 \xc0\x80 \xf4\x90\x80\x80"),
              "\xf0\x9d\x84\x9e \xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd \xef\xbf\xbd\xef\xbf\xbd "
              "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
}

} // namespace
