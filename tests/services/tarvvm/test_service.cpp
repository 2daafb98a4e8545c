// The service socket, with clients that say nothing and with no descriptor left.
#include "services/tarvvm/core/service.h"

#include "tests/services/tarvvm/loop_test.h"

#include <gmock/gmock.h>

#include <poll.h>
#include <sys/resource.h>
#include <vector>

using testing::HasSubstr;

namespace {

class ServiceTest : public LoopTest
{
protected:
    UniqueFd connect() const { return UniqueFd(cli2_connect(m_path.c_str(), nullptr)); }
    static void ask(const UniqueFd &client) { cli2_send(client.get(), "status\r\n", 8, 0); }
    // Of a connection that has one, or that was hung up.
    static std::string answer(const UniqueFd &client)
    {
        pollfd ready{client.get(), POLLIN, 0};
        char text[256];
        if (poll(&ready, 1, 0) <= 0)
            return "none";
        const ssize_t length = recv(client.get(), text, sizeof text, MSG_DONTWAIT);
        return length > 0 ? std::string(text, size_t(length)) : "hung up";
    }
    const ScratchDirectory m_directory;
    const std::string m_path = m_directory.path("vm.sock");
    std::unique_ptr<Service> m_service =
        Service::listen(m_loop, m_path, [](std::unique_ptr<ServiceRequest> request) {
            request->answer(JsonTree(json_mkobject()));
        });
};

TEST_F(ServiceTest, hearsANewcomerHoweverManyAreSilent)
{
    ASSERT_TRUE(m_service);
    std::vector<UniqueFd> silent;
    for (size_t i = 0; i < 3 * Service::CONNECTIONS_MAX; i++) {
        silent.push_back(connect());
        turn();
    }
    const UniqueFd client = connect();
    ask(client);
    turn();
    EXPECT_THAT(answer(client), HasSubstr("OK"));
    EXPECT_EQ(answer(silent.front()), "hung up") << "the one that was silent for longest";
    EXPECT_EQ(answer(silent.back()), "none");
    ask(silent.back());
    turn();
    EXPECT_THAT(answer(silent.back()), HasSubstr("OK"));
}

// Leaves this process no descriptor to make while it lives.
class NoDescriptors
{
public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const UniqueFd next(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const rlimit none{rlim_t(next.get()), m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;

private:
    rlimit m_before;
};

TEST_F(ServiceTest, doesNotSpinWithoutADescriptorAndGoesOnWhenThereIsOne)
{
    ASSERT_TRUE(m_service);
    const UniqueFd client = connect();
    ask(client);
    // Taken before: the undefined-behaviour sanitizer needs descriptors for its first look at a
    // type.
    sd_event *const loop = m_loop;
    {
        const NoDescriptors none;
        int turns = 0;
        for (int i = 0; i < 200; i++)
            turns += sd_event_run(loop, 0) > 0;
        EXPECT_LT(turns, 5);
        EXPECT_EQ(answer(client), "none");
    }
    std::string got;
    for (int i = 0; i < 2000 && (got = answer(client)) == "none"; i++)
        sd_event_run(m_loop, 10000);
    EXPECT_THAT(got, HasSubstr("OK"));

    // With silent connections there is always one to let go of.
    const UniqueFd silent = connect();
    turn();
    const UniqueFd second = connect();
    ask(second);
    const NoDescriptors none;
    turn();
    EXPECT_THAT(answer(second), HasSubstr("OK"));
    EXPECT_EQ(answer(silent), "hung up");
}

} // namespace
