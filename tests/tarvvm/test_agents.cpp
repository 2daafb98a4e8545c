// The guest's pasteboard against the real agents of Debian, on a desktop of their own.
#include "services/tarvvm/guest_pasteboard.h"

#include "platform/memory.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tests/support/guest_desktop.h"
#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr const char *TEXT = "UTF8_STRING";
constexpr const char *PICTURE = "image/png";

class Agents : public testing::Test, public PasteboardReader
{
protected:
    void SetUp() override
    {
        if (const std::string missing = GuestDesktop::missing(); !missing.empty())
            GTEST_SKIP() << missing << " is missing";
        sockaddr_un address{AF_UNIX, {}};
        m_scratch.path("port").copy(address.sun_path, sizeof address.sun_path - 1);
        m_listener.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        ASSERT_EQ(bind(m_listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address),
                  0);
        ASSERT_EQ(listen(m_listener.get(), 1), 0);
        ASSERT_EQ(sd_event_new(&m_loop), 0);
        ASSERT_TRUE(m_desktop.start()) << m_desktop.log();
        connectPort();
    }
    void TearDown() override
    {
        m_pasteboard.reset();
        if (m_loop)
            sd_event_unref(m_loop);
        if (HasFailure())
            fprintf(stderr, "%s%s", m_desktop.log().c_str(), m_log.c_str());
    }
    // The daemon opens the port again after each session.
    void connectPort()
    {
        UniqueFd socket;
        ASSERT_TRUE(until([&] {
            socket.reset(accept4(m_listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            return bool(socket);
        }));
        m_pasteboard = std::make_unique<GuestPasteboard>(
            m_loop, std::move(socket), UniqueFd(),
            [this](const std::string &line) { m_log += line + "\n"; });
        m_pasteboard->add(this);
        ASSERT_TRUE(until([this] { return m_caps == (DISPLAY_CAP_COPY | DISPLAY_CAP_PASTE); }));
    }
    bool until(const std::function<bool()> &condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            sd_event_run(m_loop, 10000);
        }
        return true;
    }
    void give(const PasteboardContents &contents)
    {
        const std::string bytes = pasteboard_archive_write(contents);
        UniqueFd memory(platform_memory_create("test", bytes.size()));
        ASSERT_EQ(pwrite(memory.get(), bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
        platform_memory_seal(memory.get());
        ASSERT_TRUE(m_pasteboard->give(std::move(memory), bytes.size()));
    }
    // The guest's program pastes; the agent may take a moment to offer what was given.
    bool guestPastes(const char *target, const std::string &expected)
    {
        return until([&] { return m_desktop.clipper().paste(target) == expected; });
    }
    // Polls as a window does, until something new came.
    PasteboardContents hostGets()
    {
        m_arrived = {};
        until([this] {
            m_pasteboard->ask(this, /*polling=*/true);
            return !m_arrived.empty();
        });
        return m_arrived;
    }
    void pasteboardCapsChanged(uint32_t caps) override { m_caps = caps; }
    void pasteboardArrived(std::shared_ptr<const PasteboardMemory> archive) override
    {
        std::string bytes(archive->size, '\0');
        EXPECT_EQ(pread(archive->fd.get(), bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
        EXPECT_TRUE(pasteboard_archive_read(bytes, &m_arrived));
    }

    ScratchDirectory m_scratch;
    sd_event *m_loop = nullptr;
    UniqueFd m_listener;
    std::string m_log;
    uint32_t m_caps = 0;
    PasteboardContents m_arrived;
    std::unique_ptr<GuestPasteboard> m_pasteboard;
    GuestDesktop m_desktop{m_scratch.path(), m_scratch.path("port"), [this] {
                               while (sd_event_run(m_loop, 0) > 0)
                                   ;
                           }};
};

// All byte values, past what a file of that kind begins with.
std::string picture(size_t size)
{
    std::string bytes = "\x89PNG\r\n\x1a\n";
    for (uint32_t i = 0; bytes.size() < size; i++)
        bytes += char(uint8_t(i * 2654435761u >> 13));
    return bytes;
}

TEST_F(Agents, takeTextsAndPicturesBothWays)
{
    std::string large;
    for (int i = 0; large.size() < 1 << 20; i++)
        large += "line " + std::to_string(i) + "\r\n\xc3\xa4";
    const std::string texts[] = {
        "plain", "\xf0\x9d\x84\x9e\xf0\x9f\x98\x80 \xc3\xa4\n two\r\nthree\n", large};
    for (const std::string &text : texts) {
        give({text, ""});
        EXPECT_TRUE(guestPastes(TEXT, text)) << text.size();
        const std::string other = "guest: " + text;
        m_desktop.clipper().copy(TEXT, other);
        EXPECT_EQ(hostGets(), (PasteboardContents{other, ""})) << text.size();
    }
    for (const size_t size : {size_t{3000}, size_t{5} << 20}) {
        give({"", picture(size)});
        EXPECT_TRUE(guestPastes(PICTURE, picture(size))) << size;
        EXPECT_FALSE(m_desktop.clipper().paste(TEXT)) << "there is no text";
        m_desktop.clipper().copy(PICTURE, picture(size + 1));
        EXPECT_EQ(hostGets(), (PasteboardContents{"", picture(size + 1)})) << size;
    }
    give({"both", picture(100)});
    EXPECT_TRUE(guestPastes(PICTURE, picture(100)));
    EXPECT_TRUE(guestPastes(TEXT, "both"));
}

TEST_F(Agents, refuseWhatIsTooLargeAndGoOn)
{
    // The agent was told the limit, and says that it has nothing then.
    m_desktop.clipper().copy(TEXT, std::string(PASTEBOARD_CONTENTS_MAX + 1, 'x'));
    EXPECT_TRUE(until([this] {
        m_pasteboard->ask(this, true);
        return m_log.find("nothing that can be taken over") != std::string::npos;
    }));
    EXPECT_TRUE(m_arrived.empty());
    const std::string most(PASTEBOARD_CONTENTS_MAX, 'y');
    m_desktop.clipper().copy(TEXT, most);
    EXPECT_EQ(hostGets().text.size(), most.size());
    give({most.substr(1) + "z", ""});
    EXPECT_TRUE(guestPastes(TEXT, most.substr(1) + "z"));
}

TEST_F(Agents, comeAndGoWithTheGuestsSession)
{
    give({"kept for the next", ""});
    EXPECT_TRUE(guestPastes(TEXT, "kept for the next"));
    m_desktop.endSession();
    EXPECT_TRUE(until([this] { return m_caps == 0; }));
    m_desktop.startSession();
    connectPort();
    m_desktop.clipper().copy(TEXT, "after");
    EXPECT_EQ(hostGets().text, "after");
}

} // namespace
