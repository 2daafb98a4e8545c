#include "tarvhv/cli2.h"

#include "policy/owners.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <thread>

namespace {

// A connected pair whose far end is played by a thread; its descriptor closes with the thread.
class Peer
{
public:
    explicit Peer(std::function<void(int fd)> play)
        : m_thread([far = std::move(m_ends.far), play = std::move(play)] { play(far.get()); })
    {
    }
    ~Peer()
    {
        m_ends.near.reset();
        m_thread.join();
    }
    // The next answer that is read from it.
    JsonOwner next(timeval patience = {60, 0})
    {
        errno = 0;
        return JsonOwner(cli2_recv_json_to(m_ends.near.get(), patience));
    }

private:
    Ends m_ends{SOCK_STREAM | SOCK_CLOEXEC};
    std::thread m_thread;
};

int error_of(const std::string &answer)
{
    Peer peer([&](int fd) { cli2_send(fd, answer.data(), answer.size(), 0); });
    return peer.next() ? 0 : errno;
}

} // namespace

TEST(Answer, isReadByteByByteAndNotBeyondItsEnd)
{
    Peer peer([](int fd) {
        for (const char byte : std::string("{\"a\":\"}{\"}\r\n{\"b\":2}\r\n"))
            cli2_send(fd, &byte, 1, 0);
    });
    EXPECT_STREQ(json_find_str(peer.next().get(), "a", ""), "}{");
    EXPECT_EQ(json_find_int64(peer.next().get(), "b", 0), 2);
    EXPECT_FALSE(peer.next());
    EXPECT_EQ(errno, ENOTCONN);
}

TEST(Answer, failsByWhatThePeerDid)
{
    EXPECT_EQ(error_of(""), ENOTCONN);
    EXPECT_EQ(error_of("\r\n"), ENOTCONN);
    EXPECT_EQ(error_of("{\"status\":"), ECONNRESET);
    EXPECT_EQ(error_of("hello"), EPROTO);
    EXPECT_EQ(error_of("\"OK\"\r\n"), EPROTO);
    EXPECT_EQ(error_of("{\"status\"}"), EPROTO);
    EXPECT_EQ(error_of("{\"a\":\"" + std::string(2 * CLI2_MESSAGE_MAX, 'x') + "\"}"), EMSGSIZE);
    EXPECT_EQ(error_of("{\"a\":" + std::string(CLI2_DEPTH_MAX, '[')), EMSGSIZE);
}

TEST(Answer, hasOneDeadlineHoweverThePeerTrickles)
{
    Peer peer([](int fd) {
        while (cli2_send(fd, " ", 1, 0) == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(peer.next({0, 300000}));
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(Answer, survivesSignalsAndPassesThroughSmallBuffers)
{
    struct sigaction action = {}, old;
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGALRM, &action, &old);
    const itimerval storm{{0, 500}, {0, 500}}, none{};
    setitimer(ITIMER_REAL, &storm, nullptr);
    const std::string text(900000, 'x');
    Peer peer([&](int fd) {
        const JsonOwner body(json_mkobject());
        json_append_str(body.get(), "text", text.c_str());
        EXPECT_EQ(cli2_answer(fd, body.get(), nullptr, 0), 0);
    });
    const JsonOwner tree = peer.next();
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_EQ(json_find_str(tree.get(), "body.text", ""), text);
}
