#include "hostlib/vms/vms.h"

#include "platform/process.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"
#include "tests/hostlib/vm/home.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <thread>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

// A service on a real socket: reads a request of `expected` bytes, sends `answer`, then closes the
// connection, or keeps it open until the client has closed.
class Service
{
public:
    Service(const std::string &path, std::string expected, std::string answer,
            bool byte_by_byte = false, bool close = true)
        : m_path(path), m_listener(cli2_listen(path.c_str()))
    {
        EXPECT_TRUE(m_listener);
        m_thread =
            std::thread([=, this, expected = std::move(expected), answer = std::move(answer)] {
                while (const UniqueFd fd{next()})
                    serve(fd.get(), expected, answer, byte_by_byte, close);
            });
    }
    ~Service()
    {
        shutdown(m_listener.get(), SHUT_RDWR);
        m_thread.join();
        unlink(m_path.c_str());
    }

private:
    // The next client, until the listener is shut down.
    int next() const
    {
        pollfd wanted{m_listener.get(), POLLIN, 0};
        poll(&wanted, 1, -1);
        return accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
    }
    void serve(int fd, const std::string &expected, const std::string &answer, bool byte_by_byte,
               bool close)
    {
        std::string request(expected.size(), '\0');
        // Nothing at all: who only looks whether the service is there.
        if (recv(fd, request.data(), request.size(), MSG_WAITALL) > 0) {
            EXPECT_EQ(request, expected);
        }
        const size_t step = byte_by_byte ? 1 : answer.size();
        for (size_t i = 0; step && i < answer.size(); i += step)
            cli2_send(fd, answer.data() + i, step, 0);
        char byte;
        if (!close)
            recv(fd, &byte, 1, 0);
    }

    std::string m_path;
    UniqueFd m_listener;
    std::thread m_thread;
};

const std::string id = "test-" + std::to_string(getpid());
const std::string vm_socket =
    "/tmp/com.quelda.tarvhv." + id + "." + std::to_string(getuid()) + ".sock";
const std::string label = "\"com.quelda.tarvhv." + id + "\"";

class Vms : public testing::Test
{
protected:
    Vms() { Home::get().takeLog(); }

    // What vms_status says of a supervisor that answers so: its "status" and the log.
    std::string status(const std::string &answer) const
    {
        const Service service(vm_socket, "status\r\n", answer);
        const KvOwner tree(vms_status(id.c_str()));
        return (tree ? kv_get_str(tree.get(), "status", "?") : "none") +
               (";" + Home::get().takeLog());
    }
    // The same of vms_exit_status, and of vms_stop.
    std::string ask(int (*question)(const char *), const std::string &command,
                    const std::string &answer) const
    {
        const Service service(Home::get().dir / "vlaunchd", command + "\r\n" + label, answer);
        const int result = question(id.c_str());
        return std::to_string(result) + ";" + Home::get().takeLog();
    }
};

} // namespace

TEST_F(Vms, statusTellsTheProcessAndWhatItReports)
{
    const Service service(vm_socket, "status\r\n",
                          R"({"status":"ok","body":{"status":"x","cpu":2.9,"list":[1,null,"a"]}})",
                          /*byte_by_byte=*/true, /*close=*/false);
    const KvOwner tree(vms_status(id.c_str()));
    EXPECT_STREQ(kv_get_str(tree.get(), "status", ""), "running");
    EXPECT_EQ(kv_get_int(tree.get(), "cpu", 0), 2);
    EXPECT_STREQ(kv_str(kv_find(tree.get(), "list[2]"), ""), "a") << "a null keeps its place";
    EXPECT_EQ(kv_get_int(tree.get(), "pid", 0), getpid());
    EXPECT_EQ(kv_get_int(tree.get(), "start_date", 0), platform_process_start(getpid()));
    EXPECT_EQ(kv_type(kv_get(tree.get(), "start_date")), KV_DATE);
    EXPECT_EQ(vms_isrunning(id.c_str()), 1);
    EXPECT_EQ(vms_getpid(id.c_str()), getpid());
}

// Numbers from 2^63 on are bits to whoever merges them, and the largest number to who converts
// them.
TEST(KvJson, keepsTheTopBitOfWhatIsMerged)
{
    const std::string text = R"({"n":9223372036854775808,"m":-1,"t":true,"z":null})";
    const JsonOwner node(json_parse(text.data(), text.size()));
    const KvOwner tree(kv_new_type(KV_MAP)), converted(kv_from_json(node.get()));
    for (struct json *child = json_first_child(node.get()); child; child = json_next(child))
        EXPECT_EQ(kv_set_json(tree.get(), child), 0);
    EXPECT_EQ(static_cast<uint64_t>(kv_get_int(tree.get(), "n", 0)), uint64_t{1} << 63);
    EXPECT_EQ(kv_get_int(tree.get(), "m", 0), -1);
    EXPECT_EQ(kv_count(tree.get()), 3u);
    EXPECT_EQ(kv_get_int(converted.get(), "n", 0), INT64_MAX);
}

TEST_F(Vms, connectsToTheLaunchServiceOrSaysThatThereIsNone)
{
    EXPECT_EQ(vconnect("ping"), -1);
    EXPECT_NE(Home::get().takeLog().find("vlaunchd service unavailable: "), std::string::npos);
    const Service service(Home::get().dir / "vlaunchd", "ping\r\n", "{}");
    const UniqueFd fd(vconnect("ping"));
    const JsonOwner answer(cli2_recv_json(fd.get()));
    EXPECT_EQ(json_kind(answer.get()), JSON_OBJECT);
}

TEST_F(Vms, statusOfASupervisorThatDoesNotSayOkIsMalfunction)
{
    const std::string failed = "malfunction;vms: " + id + ": failed to recv status: ";
    EXPECT_EQ(status(R"({"status":"ERROR","message":"broken"})"), failed + "broken\r\n");
    EXPECT_EQ(status("{}"), failed + "unknown\r\n");
    EXPECT_EQ(status("garbage"), failed + "Protocol error\r\n");
    EXPECT_EQ(status("{\"a\":\"" + std::string(2 << 20, 'x')), failed + "Message too long\r\n");
    EXPECT_EQ(status(""), "none;");
}

TEST_F(Vms, statusOfASilentSupervisorTakesFiveSeconds)
{
    const Service service(vm_socket, "status\r\n", "", false, /*close=*/false);
    const auto start = Clock::now();
    const KvOwner tree(vms_status(id.c_str()));
    EXPECT_STREQ(kv_get_str(tree.get(), "status", ""), "malfunction");
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(Home::get().takeLog(),
              "vms: " + id + ": failed to recv status: Connection timed out\r\n");
}

TEST_F(Vms, exitStatusIsWhatTheLaunchServiceKeeps)
{
    const auto exit_status = [&](const std::string &answer) {
        return ask(vms_exit_status, "status", answer);
    };
    const std::string failed = ";vms: " + id + ": failed to get status: ";
    EXPECT_EQ(exit_status(R"({"status":"OK","body":{"status":3}})"), "3;");
    EXPECT_EQ(exit_status(R"({"status":"OK"})"), "0;");
    EXPECT_EQ(exit_status(R"({"status":"ERROR","error":10,"body":{"status":137}})"), "137;");
    EXPECT_EQ(exit_status(R"({"status":"ok","message":"m","body":{"status":4}})"),
              "4" + failed + "m\r\n");
    EXPECT_EQ(exit_status(R"({"status":"ERROR","error":1})"),
              "0" + failed + "Operation not permitted\r\n");
    EXPECT_EQ(exit_status(""), "0" + failed + strerror(ENOTCONN) + "\r\n");

    const std::string gone = "No such file or directory\r\n";
    const std::string down = "vms: " + (Home::get().dir / "vlaunchd").string() +
                             ": vlaunchd service unavailable: " + gone + "vms: " + id +
                             ": failed to ";
    EXPECT_EQ(vms_exit_status(id.c_str()), -1);
    EXPECT_EQ(Home::get().takeLog(), down + "request status: connection failed: " + gone);
    EXPECT_EQ(vms_stop(id.c_str()), -1);
    EXPECT_EQ(Home::get().takeLog(), down + "remove job: connection failed: " + gone);
}

TEST_F(Vms, stopRemovesTheSocketOnceTheJobIsGone)
{
    write_file(vm_socket, "");
    EXPECT_EQ(ask(vms_stop, "remove", R"({"status":"ok"})"),
              "-1;vms: " + id + ": failed to remove job: Success\r\n");
    EXPECT_TRUE(fs::exists(vm_socket));
    EXPECT_EQ(ask(vms_stop, "remove", R"({"status":"OK"})"), "0;");
    EXPECT_FALSE(fs::exists(vm_socket));
}

TEST_F(Vms, waitFollowsTheProcessOrGivesUp)
{
    const Ends ready;
    const pid_t child = run_child([&] {
        const Service service(vm_socket, "status\r\n", R"({"status":"OK"})");
        write(ready.far.get(), "x", 1);
        for (;;)
            pause();
        return 0;
    });
    char byte;
    ASSERT_EQ(read(ready.near.get(), &byte, 1), 1);
    const auto start = Clock::now();
    EXPECT_EQ(vms_wait(id.c_str(), 1), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(1));

    const Service launch(Home::get().dir / "vlaunchd", "status\r\n" + label,
                         R"({"status":"OK","body":{"status":6}})");
    std::thread killer([&] { kill(child, SIGKILL); });
    EXPECT_EQ(vms_wait(id.c_str(), 0), 6);
    killer.join();
    EXPECT_EQ(wait_child(child), 128 + SIGKILL);
    unlink(vm_socket.c_str());
}
