#include "tarvhv/cli2.h"
#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/exchange_pool.h"

#include "tests/support/scratch.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

using std::chrono::milliseconds;
using Step = Exchange::Step;
constexpr milliseconds LONG{60000};

class ExchangeTest : public testing::Test
{
protected:
    // A question whose request has been sent, and the service's end of it.
    UniqueFd accept_from(Exchange &exchange)
    {
        exchange_run(exchange, Step::reading);
        return UniqueFd(cli2_accept(m_listener.get()));
    }
    static void say(const UniqueFd &fd, const std::string &text)
    {
        ASSERT_EQ(cli2_send(fd.get(), text.data(), text.size(), 0), 0);
    }
    // What becomes of an answer of these bytes and the end of the stream.
    int error_of(const std::string &answer)
    {
        Exchange exchange(m_path, "status\r\n", LONG);
        {
            const UniqueFd service = accept_from(exchange);
            say(service, answer);
        }
        exchange_run(exchange);
        return exchange.error();
    }

    const ScratchDirectory m_dir;
    const std::string m_path = m_dir.path("s");
    UniqueFd m_listener{cli2_listen(m_path.c_str())};
};

} // namespace

TEST_F(ExchangeTest, takesItsAnswerByteByByteWithoutWaiting)
{
    Exchange exchange(m_path, "status\r\n", LONG, 1);
    const UniqueFd service = accept_from(exchange);
    char request[16];
    EXPECT_EQ(cli2_recv(service.get(), request, sizeof request, 0), 8);
    const std::string answer = "{\"a\":\"}\"}";
    for (const char &byte : answer) {
        EXPECT_EQ(exchange.advance(), Step::reading);
        const int fd = m_listener.get();
        ASSERT_EQ(descriptors_send(service.get(), &byte, 1, {&fd, &byte == &answer[3] ? 1u : 0u}),
                  1);
    }
    EXPECT_EQ(exchange.advance(), Step::done);
    EXPECT_EQ(exchange.answerText(), answer);
    EXPECT_STREQ(json_find_str(exchange.takeAnswer().get(), "a", ""), "}");
    EXPECT_EQ(exchange.takeDescriptors().size(), 1u);
    EXPECT_FALSE(exchange.hadSurplusDescriptors());
}

TEST_F(ExchangeTest, endsByWhatThePeerDid)
{
    EXPECT_EQ(error_of("{}"), 0);
    EXPECT_EQ(error_of(""), ENOTCONN);
    EXPECT_EQ(error_of("{\"status\":"), ECONNRESET);
    EXPECT_EQ(error_of("x"), EPROTO);
    EXPECT_EQ(error_of("{]"), EPROTO);
    EXPECT_EQ(error_of("{\"a\":" + std::string(CLI2_DEPTH_MAX, '[')), EMSGSIZE);

    Exchange nobody(m_dir.path("none"), "", LONG);
    EXPECT_EQ(exchange_run(nobody), Step::failed);
    EXPECT_EQ(nobody.error(), ENOENT);
    EXPECT_FALSE(nobody.isServed());
}

TEST_F(ExchangeTest, closesTheDescriptorsOfAnAnswerThatFails)
{
    Exchange exchange(m_path, "", LONG, 2);
    UniqueFd service = accept_from(exchange);
    Ends pipe;
    const int fd = pipe.far.get();
    ASSERT_EQ(descriptors_send(service.get(), "{\"a\"", 4, {&fd, 1}), 4);
    EXPECT_EQ(exchange.advance(), Step::reading);
    service.reset();
    pipe.far.reset();
    EXPECT_EQ(exchange.advance(), Step::failed);
    char byte;
    EXPECT_EQ(read(pipe.near.get(), &byte, 1), 0) << "the other end is still open";
}

TEST_F(ExchangeTest, readsARefusalThatCameBeforeItsRequestWasRead)
{
    Exchange exchange(m_path, std::string(4 << 20, 'x'), LONG);
    ASSERT_EQ(exchange.advance(), Step::writing);
    {
        const UniqueFd service(cli2_accept(m_listener.get()));
        cli2_answer_error(service.get(), EMSGSIZE, "too large", nullptr);
    }
    EXPECT_EQ(exchange_run(exchange), Step::done);
    EXPECT_STREQ(json_find_str(exchange.takeAnswer().get(), "message", ""), "too large");
}

TEST_F(ExchangeTest, hasOneDeadlineForAllOfIt)
{
    Exchange silent(m_path, "status\r\n", milliseconds(50));
    const auto start = Cli2Clock::now();
    EXPECT_EQ(exchange_run(silent), Step::failed);
    EXPECT_EQ(silent.error(), ETIMEDOUT);
    EXPECT_TRUE(silent.isServed() && silent.isSent());
    EXPECT_GE(Cli2Clock::now() - start, milliseconds(50));

    // A full queue: somebody is there, and takes nobody.
    UniqueFd(cli2_accept(m_listener.get()));
    ASSERT_EQ(listen(m_listener.get(), 0), 0);
    const UniqueFd first(cli2_connect(m_path.c_str(), nullptr));
    Exchange crowded(m_path, "status\r\n", milliseconds(50));
    EXPECT_EQ(exchange_run(crowded), Step::failed);
    EXPECT_EQ(crowded.error(), ETIMEDOUT);
    EXPECT_TRUE(crowded.isServed());
    EXPECT_FALSE(crowded.isSent());
}

TEST_F(ExchangeTest, inAPoolTakeTurnsAndNoneWaitsForASilentOne)
{
    // Nobody takes connections at the one socket; a child answers at the other.
    const std::string lively = m_dir.path("lively");
    const UniqueFd listener(cli2_listen(lively.c_str()));
    const pid_t child = run_child([&] {
        for (int i = 0; i < 100; ++i) {
            pollfd wait{listener.get(), POLLIN, 0};
            poll(&wait, 1, 30000);
            const UniqueFd client(cli2_accept(listener.get()));
            cli2_answer(client.get(), nullptr, nullptr, 0);
        }
        return 0;
    });
    ExchangePool pool(4);
    int answered = 0, silent = 0;
    std::vector<int> order;
    for (int i = 0; i < 3; ++i)
        pool.add(
            Exchange(m_path, "status\r\n", milliseconds(200)),
            [&](const Exchange &exchange) {
                EXPECT_EQ(exchange.error(), ETIMEDOUT);
                EXPECT_EQ(answered, 100) << "a silent one held the others up";
                ++silent;
            },
            2);
    for (int i = 0; i < 100; ++i)
        pool.add(
            Exchange(lively, "status\r\n", LONG),
            [&, i](const Exchange &exchange) {
                EXPECT_EQ(exchange.step(), Step::done);
                order.push_back(i);
                ++answered;
            },
            i == 99 ? 1 : 0);
    ExchangePool *const pools[] = {&pool};
    while (!pool.empty())
        ASSERT_EQ(exchange_turn(pools, -1, std::nullopt), 0);
    EXPECT_EQ(answered, 100);
    EXPECT_EQ(silent, 3);
    EXPECT_EQ(order.front(), 99) << "the first in priority goes first";
    EXPECT_TRUE(std::is_sorted(order.begin() + 1, order.end())) << "one at a time, in order";
    EXPECT_EQ(wait_child(child), 0);
}

TEST_F(ExchangeTest, inAPoolLooksAtWhatWakesIt)
{
    ExchangePool pool(1);
    pool.add(Exchange(m_path, "", LONG), [](const Exchange &) {});
    ExchangePool *const pools[] = {&pool};
    Ends pipe;
    write(pipe.far.get(), "x", 1);
    EXPECT_EQ(exchange_turn(pools, pipe.near.get(), std::nullopt), 0);
    EXPECT_EQ(exchange_turn(pools, -1, Cli2Clock::now()), 0);
    EXPECT_FALSE(pool.empty());

    ExchangePool brief(1);
    bool told = false;
    brief.add(Exchange(m_dir.path("none"), "", LONG), [&](const Exchange &) { told = true; });
    ExchangePool *const all[] = {&brief};
    EXPECT_EQ(exchange_turn(all, -1, std::nullopt), 0) << "ended at once: nothing to wait for";
    EXPECT_TRUE(told && brief.empty());
}
