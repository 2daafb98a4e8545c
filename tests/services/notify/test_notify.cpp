#include "services/notify/notify.h"

#include "tests/support/scratch.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include <signal.h>
#include <spawn.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

namespace {

using namespace std::chrono_literals;

// A private directory and the session bus address of it.
class NotifyTest : public testing::Test
{
protected:
    NotifyTest() { setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1); }
    ~NotifyTest() override
    {
        if (m_daemon > 0 && kill(m_daemon, SIGKILL) == 0)
            wait_child(m_daemon);
    }
    // The bus, once it listens, with this process connected to it.
    void startBus(sd_bus **bus)
    {
        const std::string option = "--address=" + m_address;
        const char *argv[] = {"dbus-daemon", "--session", "--nofork", option.c_str(), nullptr};
        if (posix_spawnp(&m_daemon, argv[0], nullptr, nullptr, const_cast<char **>(argv), environ))
            GTEST_SKIP() << "no dbus-daemon on this machine";
        for (const auto end = std::chrono::steady_clock::now() + 20s; sd_bus_open_user(bus) < 0;) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "the bus did not come up";
            std::this_thread::yield();
        }
    }

    const ScratchDirectory m_directory;
    const std::string m_socket = m_directory.path("bus"), m_address = "unix:path=" + m_socket;
    pid_t m_daemon = 0;
};

int keepSignal(sd_bus_message *message, void *user, sd_bus_error *)
{
    const char *id = "";
    sd_bus_message_read(message, "s", &id);
    *static_cast<std::string *>(user) = std::string(sd_bus_message_get_path(message)) + " " +
                                        sd_bus_message_get_interface(message) + " " +
                                        sd_bus_message_get_member(message) + " " + id;
    return 0;
}

TEST_F(NotifyTest, reachesListenersOfTheSession)
{
    sd_bus *bus = nullptr;
    startBus(&bus);
    if (!bus)
        return;
    std::string seen;
    ASSERT_GE(sd_bus_match_signal(bus, nullptr, nullptr, NOTIFY_PATH, NOTIFY_INTERFACE, nullptr,
                                  keepSignal, &seen),
              0);
    for (const char *member : {"start", "stop", "create", "delete", "change"}) {
        seen.clear();
        EXPECT_EQ(notify_post(member, "some-id").text, "");
        for (auto end = std::chrono::steady_clock::now() + 20s;
             seen.empty() && std::chrono::steady_clock::now() < end;)
            if (sd_bus_process(bus, nullptr) == 0)
                sd_bus_wait(bus, 100'000);
        EXPECT_EQ(seen, "/com/quelda/tarvhv com.quelda.tarvhv.notification " + std::string(member) +
                            " some-id");
    }
    sd_bus_flush_close_unref(bus);
}

TEST_F(NotifyTest, saysThatThereIsNoBus)
{
    const ServiceFailure failure = notify_post("start", "id");
    EXPECT_EQ(failure.error, ENOTCONN);
    EXPECT_EQ(failure.text, "failed to announce the start: Transport endpoint is not connected");
    EXPECT_EQ(notify_post("not a member", "id").error, EINVAL);
    EXPECT_EQ(notify_post("start", nullptr).error, EINVAL);
    EXPECT_EQ(notify_post(nullptr, "id").error, EINVAL);
}

TEST_F(NotifyTest, givesUpOnABusThatNeverAnswers)
{
    const UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    m_socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 4), 0);
    EXPECT_EQ(notify_post("start", "id").error, ETIMEDOUT);
}

} // namespace
