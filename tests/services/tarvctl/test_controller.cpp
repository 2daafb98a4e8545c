#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tests/services/tarvctl/controller_home.h"

#include <atomic>
#include <csignal>
#include <thread>

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

// Each command once as it should be and once wrong: what programs get to see.
TEST_F(ControllerTest, answersEachCommand)
{
    const std::string a = create("a"), b = create("b");
    auto both = [&](const char *status) {
        return Json{{"vms",
                     {{{"id", a}, {"name", "a"}, {"status", status}},
                      {{"id", b}, {"name", "b"}, {"status", status}}}}};
    };
    struct
    {
        std::vector<std::string> arguments;
        int exit;
        std::string message;
        Json body = nullptr;
    } cases[] = {
        {{"start", "-fv", a, "b"},
         0,
         "TARV_TARV_VIEWER is not set: the screen is not shown",
         both("OK")},
        {{"start", a}, 4, "a \\(" + a + "\\): is already running"},
        {{"modify", a, "set", "cpu.count", "2"}, 4, "a \\(.*\\): is running: only its name .*"},
        {{"start", "-fu", a}, 2, "start: .*excludes.*"},
        {{"reboot", a}, 0, ""},
        {{"reboot", "c"}, 3, "no VM has the identifier or name \"c\""},
        {{"delete", "--yes", a}, 4, "a \\(.*\\): is running; stop it to delete it"},
        {{"delete", a}, 2, "delete: needs --yes where nobody can be asked"},
        {{"clone", a, "c"}, 4, "a \\(.*\\): is running; stop it to clone it"},
        {{"suspend", b}, 0, ""},
        {{"suspend", b}, 4, "b \\(.*\\): is not running"},
        {{"stop", b}, 4, "b \\(.*\\): is suspended; stop --force drops its state"},
        {{"stop", b, "--force"}, 0, ""},
        {{"stop", a, "nobody"}, 3, "no VM has the identifier or name \"nobody\""},
        {{"stop", a}, 0, ""},
        {{"stop", a}, 4, "a \\(.*\\): is not running"},
        {{"modify", a, "set", "name", "[b]"}, 0, "", {{"id", a}, {"name", "[b]"}}},
        {{"stop", "[b]"}, 4, "\\[b\\] \\(" + a + "\\): is not running"},
        {{"modify", a, "set", "name", "new name"}, 0, "", {{"id", a}, {"name", "new name"}}},
        {{"modify", a, "set", "name", "b"}, 5, "a VM of the name \"b\" exists already"},
        {{"modify", a, "set", "name"}, 2, "modify: name: has no value"},
        {{"modify", a, "get", "name"}, 2, "modify: .*get.*"},
        {{"modify", a, "set", "uuid", "x"}, 6, "modify: uuid: not a key that can be set"},
        {{"modify", a, "set", "cpu.count", "0"}, 6, ".*cpu\\.count.*"},
        {{"modify", a, "set", "network[0].mode", "host"}, 0, ""},
        {{"modify", a, "set", "network[3].mode", "host"}, 6, ".*the VM has no network\\[3\\]"},
        {{"clone", "--copy", "new name", "twin"}, 0, ""},
        {{"clone", a, "b"}, 5, "a VM of the name \"b\" exists already"},
        {{"show", "--frob", a}, 2, "show: .*--frob.*"},
        {{"eula", "status"}, 0, "", {{"accepted", false}}},
        {{"eula", "accept"}, 0, "", {{"accepted", true}}},
        {{"eula", "refuse"}, 2, "eula: .*refuse.*"},
        {{"create", "--list"}, 0, "", Json::array()},
        {{"create", "x", "latest"}, 6, "IMAGE: latest: no image .*"},
        {{"ping"}, 0, "", Json::object()},
        {{"delete", "--yes", a, "b", "twin"}, 0, ""},
        {{"frobnicate"}, 2, "frobnicate: no such command; see tarvctl --help"},
        {{}, 2, "no command; see tarvctl --help"},
    };
    for (const auto &expected : cases) {
        const Json answer = ctl(expected.arguments);
        const std::string line = testing::PrintToString(expected.arguments);
        EXPECT_EQ(answer["exit"], expected.exit) << line << answer;
        EXPECT_EQ(answer["status"], expected.exit == 0 ? "OK" : "ERROR") << line;
        EXPECT_THAT(answer["message"].get<std::string>(), MatchesRegex(expected.message))
            << line << answer;
        if (!expected.body.is_null()) {
            EXPECT_EQ(answer["body"], expected.body) << line;
        }
    }
    EXPECT_THAT(names("vms"), IsEmpty());
    EXPECT_THAT(names("images"), IsEmpty());
}

// A file that is opened must not get a standard descriptor's number, and with it what is printed.
TEST_F(ControllerTest, worksWithoutStandardDescriptors)
{
    const std::string id = create("plain");
    for (const char *closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        const std::string line = std::string("exec \"$0\" clone --copy plain twin ") + closed;
        EXPECT_EQ(m_home.run({"/bin/sh", "-c", line, TARVCTL_PROGRAM}).status, 0) << closed;
        const std::string file =
            ctl({"show", "twin"})["body"]["configuration"]["hard_drives"][0]["file"];
        EXPECT_EQ(file_text(m_home.file("images/" + file)),
                  file_text(m_home.file("images/" + id + "-disk0.qcow2")))
            << closed;
        EXPECT_EQ(ctl({"delete", "--yes", "twin"})["exit"], 0) << closed;
    }
}

TEST_F(ControllerTest, showsTheEngineAndNamesOneThatIsNotThere)
{
    const std::string id = create("vm, 1");
    const Json shown = ctl({"show", "--command", id})["body"];
    EXPECT_EQ(shown["program"], "/usr/bin/qemu-system-x86_64");
    EXPECT_EQ(shown["arguments"][1], "guest=vm,, 1");
    EXPECT_THAT(shown["arguments"].dump(),
                HasSubstr(",file=" + m_home.file("images/" + id + "-disk0.qcow2") + '"'));
    m_home.set("qemu_executable", "/no/qemu");
    EXPECT_EQ(ctl({"show", id, "--command"})["message"],
              "QEMU (setting qemu_executable) /no/qemu: No such file or directory");
    const Json doctor = ctl({"doctor"});
    EXPECT_EQ(doctor["exit"], 1);
    EXPECT_EQ(doctor["message"], "to be mended: qemu_executable");
}

TEST_F(ControllerTest, startsWithTheMode)
{
    const std::string id = create("plain");
    EXPECT_EQ(ctl({"start", "-u", id})["exit"], 0);
    EXPECT_EQ(file_text(m_home.file("arguments")), "--mode\n1\n" + id + "\n");
}

TEST_F(ControllerTest, tellsWhyAStartFailed)
{
    const std::string id = create("fail");
    const Json answer = ctl({"start", id});
    EXPECT_EQ(answer["exit"], 1);
    EXPECT_EQ(answer["message"], "fail (" + id + "): the disk has gone for a walk");
    EXPECT_EQ(status(id), "failed");
    m_home.set("supervisor_executable", "/no/supervisor");
    EXPECT_THAT(ctl({"start", id})["message"].get<std::string>(),
                HasSubstr("/no/supervisor: No such file or directory"));
}

TEST_F(ControllerTest, startsTheLaunchServiceOnceHoweverManyAsk)
{
    std::vector<pid_t> askers;
    for (int count = 0; count < 12; ++count)
        askers.push_back(m_home.spawn({TARVCTL_PROGRAM, "ping"}));
    for (const pid_t pid : askers) {
        int state = -1;
        ASSERT_EQ(waitpid(pid, &state, 0), pid);
        EXPECT_EQ(state, 0);
    }
    const std::string log = file_text(m_home.file("log/vlaunchd.log"));
    EXPECT_EQ(log.find("serving on"), log.rfind("serving on"));
    m_home.kill_service();
    m_home.set("vlaunchd_executable", "/bin/false");
    const Json answer = ctl({"ping"});
    EXPECT_EQ(answer["exit"], 8);
    EXPECT_THAT(answer["message"].get<std::string>(), HasSubstr("ended at once with status 1"));
    m_home.set("vlaunchd_executable", VLAUNCHD_PROGRAM);
}

TEST_F(ControllerTest, speaksToPeopleInTables)
{
    create("plain");
    m_home.environment.erase("TARV_MACHINE_READABLE");
    const ProgramResult list = m_home.run({TARVCTL_PROGRAM, "list"});
    EXPECT_THAT(list.out, MatchesRegex("NAME  *STATUS  *VERSION  *FIRMWARE  *ID\n"
                                       "plain  *stopped  *bios  *[-0-9a-f]{36}\n"));
    const ProgramResult wrong = m_home.run({TARVCTL_PROGRAM, "show", "nobody"});
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(wrong.err, "tarvctl: no VM has the identifier or name \"nobody\"\n");
    m_home.environment["TARV_MACHINE_READABLE"] = "1";
}

TEST_F(ControllerTest, tellsTheTruthOfAVmWithoutASocket)
{
    const std::string id = create("vm");
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    ASSERT_EQ(unlink(vm_socket(id).c_str()), 0);
    EXPECT_EQ(status(id), "running");
    const std::string lost = "runs, but nobody serves " + vm_socket(id);
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{"modify", id, "set", "cpu.count", "2"}, 4, "is running: only its name can be changed"},
        {{"start", id}, 8, lost},
        {{"stop", id}, 8, lost},
        {{"delete", "--yes", id}, 4, "is running; stop it to delete it"},
    };
    for (const auto &[command, exit, message] : cases) {
        const Json answer = ctl(command);
        EXPECT_EQ(answer["exit"], exit) << command[0];
        EXPECT_THAT(answer["message"].get<std::string>(), HasSubstr(message));
    }
    EXPECT_EQ(ctl({"stop", "--force", id})["exit"], 0);
    EXPECT_EQ(status(id), "stopped");
}

TEST_F(ControllerTest, asksASupervisorAgainThatHangsUpAndTellsWhyItRefuses)
{
    const std::string id = create("vm");
    const UniqueFd listener(cli2_listen(vm_socket(id).c_str()));
    ASSERT_TRUE(listener);
    std::atomic<int> hang_ups = 3;
    std::atomic<int> refusal = EBUSY;
    std::atomic<bool> over = false;
    std::thread supervisor([&] {
        while (!over) {
            pollfd wait{listener.get(), POLLIN, 0};
            poll(&wait, 1, 50);
            const UniqueFd client(cli2_accept(listener.get()));
            if (!client || hang_ups-- > 0)
                continue;
            char request[64] = {};
            poll(&(wait = {client.get(), POLLIN, 0}), 1, 5000);
            cli2_recv(client.get(), request, sizeof request - 1, 0);
            if (request[0] == 'r')
                cli2_answer_error(client.get(), refusal, "no", nullptr);
            else
                cli2_answer(client.get(), nullptr, nullptr, 0);
        }
    });
    EXPECT_EQ(status(id), "running") << "dropped three times, answered then";
    for (const auto &[error, exit] : {std::pair(EBUSY, 4), {ENOSPC, 7}, {EIO, 1}}) {
        refusal = error;
        EXPECT_EQ(ctl({"reboot", id})["exit"], exit) << "what the supervisor refuses with";
    }
    hang_ups = 1000;
    EXPECT_EQ(status(id), "malfunction");
    over = true;
    supervisor.join();
    unlink(vm_socket(id).c_str());
}

TEST_F(ControllerTest, replacesALaunchServiceThatHangs)
{
    const std::string id = create("vm");
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    const auto service = [&] {
        pid_t pid = 0;
        std::ifstream(m_home.file("vlaunchd.jobs/.service")) >> pid;
        return pid;
    };
    const pid_t hung = service();
    ASSERT_GT(hung, 1);
    kill(hung, SIGSTOP);
    EXPECT_EQ(ctl({"stop", id})["exit"], 0);
    EXPECT_NE(service(), hung);
    EXPECT_EQ(status(id), "stopped");
}

} // namespace
