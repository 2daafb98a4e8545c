#include "services/notify/notify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

// A private directory and the session bus address of it.
class NotifyTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = testing::TempDir() + "/notify.XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_dir = pattern;
        m_socket = m_dir + "/bus";
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + m_socket).c_str(), 1);
    }
    void TearDown() override
    {
        if (m_daemon > 0) {
            kill(m_daemon, SIGKILL);
            waitpid(m_daemon, nullptr, 0);
        }
        std::filesystem::remove_all(m_dir);
    }
    void startBus()
    {
        std::string address = "--address=unix:path=" + m_socket;
        const char *argv[] = {"dbus-daemon", "--session", "--nofork", address.c_str(), nullptr};
        if (posix_spawnp(&m_daemon, argv[0], nullptr, nullptr, const_cast<char **>(argv), environ))
            GTEST_SKIP() << "no dbus-daemon on this machine";
        for (auto end = std::chrono::steady_clock::now() + 20s;
             access(m_socket.c_str(), F_OK) != 0;) {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "the bus did not come up";
            std::this_thread::yield();
        }
    }

    std::string m_dir, m_socket;
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
    startBus();
    if (IsSkipped())
        return;
    sd_bus *bus = nullptr;
    int opened = -1;
    for (auto end = std::chrono::steady_clock::now() + 20s;
         (opened = sd_bus_open_user(&bus)) < 0 && std::chrono::steady_clock::now() < end;)
        std::this_thread::yield();
    ASSERT_GE(opened, 0);
    std::string seen;
    ASSERT_GE(sd_bus_match_signal(bus, nullptr, nullptr, NOTIFY_PATH, NOTIFY_INTERFACE, nullptr,
                                  keepSignal, &seen),
              0);
    for (const char *member : {"start", "stop", "create", "delete", "change"}) {
        seen.clear();
        EXPECT_EQ(notify_post(member, "some-id"), 0);
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
    errno = 0;
    EXPECT_EQ(notify_post("start", "id"), -1);
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_EQ(notify_post("not a member", "id"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(notify_post("start", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(NotifyTest, givesUpOnABusThatNeverAnswers)
{
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    m_socket.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    EXPECT_EQ(notify_post("start", "id"), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    close(listener);
}

} // namespace
