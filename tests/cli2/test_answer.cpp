#include "tarvhv/cli2.h"

#include "platform/unique_fd.h"
#include "policy/json.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>

namespace {

using Tree = std::unique_ptr<json, decltype(&json_delete)>;
constexpr timeval minute{60, 0};

// A connected pair whose far end is played by a thread; its descriptor closes with the thread.
class Peer
{
public:
    explicit Peer(std::function<void(int fd)> play)
    {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        m_near.reset(fds[0]);
        m_thread = std::thread([far = fds[1], play = std::move(play)] {
            const UniqueFd owner(far);
            play(far);
        });
    }
    ~Peer()
    {
        m_near.reset();
        m_thread.join();
    }
    int fd() const { return m_near.get(); }

private:
    UniqueFd m_near;
    std::thread m_thread;
};

void send_text(int fd, const std::string &text)
{
    cli2_send(fd, text.data(), text.size(), 0);
}

int error_of(const std::string &answer)
{
    Peer peer([&](int fd) { send_text(fd, answer); });
    errno = 0;
    const Tree tree(cli2_recv_json_to(peer.fd(), minute), json_delete);
    return tree ? 0 : errno;
}

} // namespace

TEST(Answer, isReadByteByByteAndNotBeyondItsEnd)
{
    Peer peer([](int fd) {
        for (const char byte : std::string("{\"a\":\"}{\"}\r\n{\"b\":2}\r\n"))
            cli2_send(fd, &byte, 1, 0);
    });
    const Tree first(cli2_recv_json_to(peer.fd(), minute), json_delete);
    const Tree second(cli2_recv_json_to(peer.fd(), minute), json_delete);
    EXPECT_STREQ(json_find_str(first.get(), "a", ""), "}{");
    EXPECT_EQ(json_find_int64(second.get(), "b", 0), 2);
    EXPECT_EQ(cli2_recv_json_to(peer.fd(), minute), nullptr);
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
    EXPECT_EQ(cli2_recv_json_to(peer.fd(), timeval{0, 300000}), nullptr);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(Answer, survivesSignalsAndPassesThroughSmallBuffers)
{
    struct sigaction action
    {
    }, old{};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &old);
    const itimerval storm{{0, 500}, {0, 500}}, none{};
    setitimer(ITIMER_REAL, &storm, nullptr);
    const std::string text(900000, 'x');
    Peer peer([&](int fd) {
        const Tree body(json_mkobject(), json_delete);
        json_append_str(body.get(), "text", text.c_str());
        EXPECT_EQ(cli2_answer(fd, body.get(), nullptr, 0), 0);
    });
    const Tree tree(cli2_recv_json_to(peer.fd(), minute), json_delete);
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_EQ(json_find_str(tree.get(), "body.text", ""), text);
}
