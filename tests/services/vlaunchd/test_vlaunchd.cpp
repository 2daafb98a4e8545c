#include "services/vlaunchd/job.h"

#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/exchange.h"
#include "tests/support/service_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

class VlaunchdTest : public testing::Test
{
protected:
    Json ask(const std::string &command, const Json &value = nullptr)
    {
        const std::string text =
            m_home.ask(command + "\r\n" + (value.is_null() ? "" : value.dump()));
        EXPECT_TRUE(text.empty() || text.ends_with("\r\n"));
        return Json::parse(text, nullptr, false);
    }
    Json start(const std::string &label, const std::vector<std::string> &arguments)
    {
        return ask("start",
                   {{"label", label}, {"program", JOBTOOL_PROGRAM}, {"arguments", arguments}});
    }
    // The status answer once the job has ended.
    Json ended(const std::string &label)
    {
        Json answer;
        EXPECT_TRUE(wait_for([&] {
            answer = ask("status", label);
            return answer.value("error", 0) == 10;
        })) << answer;
        return answer;
    }
    // Waits until a job in the mode "stubborn" does so.
    bool ignores_sigterm() const
    {
        return wait_for([&] {
            return file_text(m_home.file("log/vlaunchd.log")).find("tool: stubborn") !=
                   std::string::npos;
        });
    }
    static pid_t pid_of(const Json &answer) { return answer["body"].value("pid", -1); }

    ServiceHome m_home;
};

TEST(JobState, allowsWhatIsInTheTableAndNothingElse)
{
    using enum JobState;
    constexpr JobState no = JobState(-1);
    // Events startAsked, processEnded, removeAsked.
    const std::pair<JobState, std::array<JobState, 3>> table[] = {
        {absent, {running, no, absent}},
        {running, {no, ended, removing}},
        {removing, {no, absent, removing}},
        {ended, {running, no, absent}}};
    for (const auto &[state, nexts] : table)
        for (size_t event = 0; event < nexts.size(); event++)
            EXPECT_EQ(job_state_next(state, JobEvent(event)).value_or(no), nexts[event])
                << int(state) << " " << event;
}

TEST_F(VlaunchdTest, tellsHowJobsEnded)
{
    m_home.start_vlaunchd();
    EXPECT_EQ(ask("status", "com.quelda.tarvhv.none"),
              Json::parse(R"({"status":"OK","body":{"status":0}})"));
    struct
    {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    } cases[] = {
        {{"exit", "0"}, 0, "job ended with status 0"},
        {{"exit", "3"}, 3, "job ended with status 3"},
        {{"report", "4", "no such disk"}, 4, "no such disk"},
    };
    for (const auto &expected : cases) {
        ASSERT_EQ(start("job", expected.arguments)["status"], "OK");
        EXPECT_EQ(ended("job"), Json({{"status", "ERROR"},
                                      {"error", 10},
                                      {"message", expected.message},
                                      {"body", {{"status", expected.status}}}}));
    }
    const Json running = start("job", {"wait"});
    EXPECT_EQ(ask("status", "job")["body"], Json({{"status", 0}, {"pid", pid_of(running)}}));
    kill(pid_of(running), SIGKILL);
    EXPECT_EQ(ended("job")["message"], "job was killed by signal 9");
    EXPECT_EQ(ended("job")["body"]["status"], 137);
    EXPECT_EQ(ask("list")["body"]["jobs"], Json::parse(R"([{"label":"job","status":137}])"));
}

TEST_F(VlaunchdTest, refusesWhatCanNotBeRun)
{
    m_home.start_vlaunchd();
    const pid_t running = pid_of(start("twice", {"wait"}));
    EXPECT_EQ(start("twice", {"wait"})["message"], "job twice is already running");
    EXPECT_EQ(pid_of(ask("status", "twice")), running);
    struct
    {
        std::string command;
        Json value;
        std::string message;
    } cases[] = {
        {"start", {{"label", "../x"}, {"program", "/bin/true"}}, "label: not a job label"},
        {"start", {{"label", "x"}, {"program", "true"}}, "program: not an absolute path: true"},
        {"start",
         {{"label", "x"}, {"program", "/no/such"}},
         "failed to start /no/such: No such file or directory"},
        {"start",
         {{"label", "x"}, {"program", "/bin/true"}, {"arguments", {1}}},
         "arguments: not a text"},
        {"start",
         {{"label", "x"}, {"program", "/bin/true"}, {"environment", {{"A=B", "1"}}}},
         "environment: not a name with a text: A=B"},
        {"start", "x", "start: needs an object"},
        {"status", Json::object(), "status: needs a quoted label"},
        {"frobnicate", nullptr, "unknown command: frobnicate"},
        {"eula", {{"action", "burn"}}, "eula: the action is not \"accept\""},
    };
    for (const auto &expected : cases) {
        const Json answer = ask(expected.command, expected.value);
        EXPECT_EQ(answer["status"], "ERROR");
        EXPECT_EQ(answer["message"], expected.message);
    }
    EXPECT_EQ(ask("status", "x")["status"], "OK") << "a job that never began leaves no record";
}

TEST_F(VlaunchdTest, removesJobsByTheLadder)
{
    m_home.start_vlaunchd();
    const pid_t polite = pid_of(start("polite", {"wait"}));
    const pid_t stubborn = pid_of(start("stubborn", {"stubborn"}));
    ASSERT_TRUE(ignores_sigterm());
    EXPECT_EQ(ask("remove", "polite")["status"], "OK");
    EXPECT_EQ(kill(polite, 0), -1);
    EXPECT_EQ(ask("remove", "polite")["status"], "OK") << "already gone";
    EXPECT_EQ(ask("remove", "stubborn")["status"], "OK");
    EXPECT_EQ(kill(stubborn, 0), -1);
    EXPECT_EQ(ask("list")["body"]["jobs"], Json::array());
    EXPECT_THAT(file_text(m_home.file("log/vlaunchd.log")),
                HasSubstr("stubborn: still there, SIGKILL"));
}

TEST_F(VlaunchdTest, findsItsJobsAgainAfterItWasEndedAndKilled)
{
    m_home.start_vlaunchd();
    const pid_t living = pid_of(start("living", {"report-on-term"}));
    const pid_t killed = pid_of(start("killed", {"wait"}));
    const pid_t reporting = pid_of(start("reporting", {"report-on-term"}));
    ASSERT_EQ(start("earlier", {"exit", "5"})["status"], "OK");
    ended("earlier");
    m_home.end_vlaunchd(SIGTERM);
    EXPECT_FALSE(std::filesystem::exists(m_home.file("vlaunchd")));
    m_home.start_vlaunchd();
    EXPECT_EQ(pid_of(ask("status", "living")), living);
    m_home.end_vlaunchd(SIGKILL);
    kill(killed, SIGKILL);
    ASSERT_TRUE(wait_for([&] {
        kill(reporting, SIGTERM); // it may not be listening to it yet
        return std::filesystem::exists(m_home.file("vlaunchd.jobs/reporting.report"));
    }));
    std::ofstream(m_home.file("vlaunchd.jobs/broken.json")) << "{\"label\":";

    m_home.start_vlaunchd();
    EXPECT_EQ(pid_of(ask("status", "living")), living);
    EXPECT_EQ(start("living", {"wait"})["status"], "ERROR");
    EXPECT_EQ(ended("killed")["body"]["status"], 137);
    EXPECT_EQ(ended("reporting")["message"], "asked to end");
    EXPECT_EQ(ended("earlier")["body"]["status"], 5);
    kill(living, SIGTERM);
    EXPECT_EQ(ended("living")["body"]["status"], 7);
}

// The socket is the service manager's: it outlives the service, whose jobs the next one finds.
TEST_F(VlaunchdTest, servesOnASocketThatItWasHanded)
{
    const std::string tool = "/usr/bin/systemd-socket-activate";
    if (access(tool.c_str(), X_OK) != 0)
        GTEST_SKIP() << tool << " is not on this machine";
    std::vector<std::string> argv = {tool, "-l", m_home.file("vlaunchd")};
    for (const auto &[name, value] : m_home.environment)
        argv.insert(argv.end(), {"-E", name});
    argv.push_back(VLAUNCHD_PROGRAM);
    pid_t job = -1;
    for (const bool first : {true, false}) {
        const pid_t service = m_home.spawn(argv);
        Json answer; // none while nobody listens yet
        ASSERT_TRUE(wait_for([&] {
            answer = first ? start("job", {"wait"}) : ask("status", "job");
            return answer.is_object();
        }));
        ASSERT_EQ(answer["status"], "OK") << answer;
        job = first ? pid_of(answer) : job;
        EXPECT_EQ(pid_of(answer), job);
        kill(service, SIGTERM);
        int status = -1;
        ASSERT_EQ(waitpid(service, &status, 0), service);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(kill(job, 0), 0);
        EXPECT_TRUE(std::filesystem::exists(m_home.file("vlaunchd")));
    }
    kill(job, SIGKILL);
}

TEST_F(VlaunchdTest, neverTakesAnotherProcessForItsJob)
{
    m_home.start_vlaunchd();
    ASSERT_EQ(start("job", {"wait"})["status"], "OK");
    m_home.end_vlaunchd(SIGKILL);
    const std::string path = m_home.file("vlaunchd.jobs/job.json");
    Json record = Json::parse(file_text(path));
    kill(record["pid"].get<pid_t>(), SIGKILL);
    // The kernel counts starts in hundredths of a second: the two must differ in it.
    const auto later = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    ASSERT_TRUE(wait_for([&] { return std::chrono::steady_clock::now() > later; }));
    const pid_t other = m_home.spawn({JOBTOOL_PROGRAM, "wait"});
    record["pid"] = other;
    std::ofstream(path) << record;
    m_home.start_vlaunchd();
    ended("job");
    EXPECT_EQ(ask("remove", "job")["status"], "OK");
    EXPECT_EQ(kill(other, 0), 0) << "the process that has the pid now got the signal";
    kill(other, SIGKILL);
}

TEST_F(VlaunchdTest, servesOthersWhileClientsMisbehave)
{
    m_home.start_vlaunchd();
    std::vector<UniqueFd> clients;
    auto client = [&](const std::string &bytes) {
        clients.emplace_back(m_home.connect_vlaunchd());
        send(clients.back().get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    };
    for (int count = 0; count < 300; ++count) // more than it keeps at once
        client(count % 2 ? "" : "sta");
    client("start\r\n{\"label\":\"" + std::string(60'000, 'x'));
    client("list\r\n"); // and never reads
    client("remove\r\n\"never-seen\"");
    EXPECT_EQ(ask("status", "job")["status"], "OK");
    clients.clear();
    EXPECT_THAT(m_home.ask("GET / HTTP/1.0\r\n"), HasSubstr("not a command"));
    EXPECT_THAT(m_home.ask("status\r\n" + std::string(100, '{')), HasSubstr("ERROR"));
    std::string deep = "start\r\n";
    for (int level = 0; level < 70; ++level)
        deep += "{\"a\":";
    EXPECT_THAT(m_home.ask(deep), HasSubstr("too large or too deep"));
    // One byte at a time.
    const UniqueFd slow(m_home.connect_vlaunchd());
    for (const char byte : std::string("status\r\n\"job\""))
        ASSERT_EQ(send(slow.get(), &byte, 1, MSG_NOSIGNAL), 1);
    char answer[256] = {};
    EXPECT_GT(recv(slow.get(), answer, sizeof answer - 1, 0), 0);
    EXPECT_THAT(answer, StartsWith("{\"status\":\"OK\""));
}

TEST_F(VlaunchdTest, carriesNothingOutWhoseSenderHasGivenUp)
{
    const pid_t service = m_home.start_vlaunchd();
    const auto request = [](const char *label, int64_t deadline) {
        const Json value = {{"label", label},
                            {"program", JOBTOOL_PROGRAM},
                            {"arguments", {"wait"}},
                            {"deadline", deadline}};
        return "start\r\n" + value.dump();
    };
    const auto send_to = [&](const std::string &text) {
        UniqueFd fd(m_home.connect_vlaunchd());
        EXPECT_EQ(send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL), ssize_t(text.size()));
        return fd;
    };
    ASSERT_EQ(start("removed", {"wait"})["status"], "OK");
    kill(service, SIGSTOP);
    send_to(request("left", request_deadline(std::chrono::hours(1))));
    send_to("remove\r\n\"removed\"");
    const UniqueFd late = send_to(request("late", request_deadline(std::chrono::seconds(-1))));
    const UniqueFd good = send_to(request("good", request_deadline(std::chrono::hours(1))));
    kill(service, SIGCONT);
    char answer[512] = {};
    EXPECT_GT(recv(late.get(), answer, sizeof answer - 1, MSG_WAITALL), 0);
    EXPECT_THAT(answer, HasSubstr("came too late"));
    EXPECT_GT(recv(good.get(), answer, sizeof answer - 1, MSG_WAITALL), 0);
    std::vector<std::string> labels;
    const Json list = ask("list");
    for (const Json &job : list["body"]["jobs"])
        if (job.contains("pid"))
            labels.push_back(job["label"]);
    EXPECT_THAT(labels, testing::ElementsAre("good", "removed"));
}

TEST_F(VlaunchdTest, makesItsSocketAgainAndLeavesItToAnother)
{
    const pid_t service = m_home.start_vlaunchd();
    const std::string path = m_home.file("vlaunchd");
    ASSERT_EQ(start("job", {"wait"})["status"], "OK");
    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_TRUE(wait_for([&] { return bool(UniqueFd(m_home.connect_vlaunchd())); }));
    EXPECT_GT(pid_of(ask("status", "job")), 0);

    // Another that has taken its place keeps it, and the records are let go of.
    const UniqueFd other(cli2_listen((path + ".other").c_str()));
    ASSERT_EQ(rename((path + ".other").c_str(), path.c_str()), 0);
    int status = -1;
    EXPECT_TRUE(wait_for([&] { return waitpid(service, &status, WNOHANG) == service; }));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(std::filesystem::exists(path));
    unlink(path.c_str());
    m_home.start_vlaunchd();
    EXPECT_GT(pid_of(ask("status", "job")), 0);
}

TEST_F(VlaunchdTest, isHeldByOneServiceAtATime)
{
    const pid_t first = m_home.start_vlaunchd();
    kill(first, SIGSTOP); // so that it can't see its place taken
    unlink(m_home.file("vlaunchd").c_str());
    const pid_t second = m_home.spawn({VLAUNCHD_PROGRAM});
    ASSERT_TRUE(wait_for([&] { return bool(UniqueFd(m_home.connect_vlaunchd())); }));
    EXPECT_EQ(waitpid(second, nullptr, WNOHANG), 0) << "it waits for the first to let go";
    kill(first, SIGCONT);
    EXPECT_TRUE(wait_for([&] { return waitpid(first, nullptr, WNOHANG) == first; }));
    EXPECT_EQ(ask("list")["status"], "OK");
    EXPECT_TRUE(std::filesystem::exists(m_home.file("vlaunchd")));
    kill(second, SIGTERM);
    waitpid(second, nullptr, 0);
    EXPECT_FALSE(std::filesystem::exists(m_home.file("vlaunchd")));
}

TEST_F(VlaunchdTest, doesNotSpinWithoutADescriptor)
{
    const pid_t service = m_home.start_vlaunchd();
    ASSERT_EQ(start("job", {"stubborn"})["status"], "OK");
    ASSERT_TRUE(ignores_sigterm()) << "else its removal is done at once, and nobody waits";
    // As many descriptors as it has, and all of them with clients that wait for a removal.
    const auto used = std::distance(
        std::filesystem::directory_iterator("/proc/" + std::to_string(service) + "/fd"), {});
    const rlimit limit{rlim_t(used) + 6, rlim_t(used) + 6};
    ASSERT_EQ(prlimit(service, RLIMIT_NOFILE, &limit, nullptr), 0);
    std::vector<UniqueFd> clients;
    const std::string request = "remove\r\n\"job\"";
    const std::string log = m_home.file("log/vlaunchd.log");
    const auto complaints = [&] {
        size_t count = 0;
        const std::string text = file_text(log);
        for (size_t at = 0; (at = text.find("failed to accept", at)) != std::string::npos; ++at)
            ++count;
        return count;
    };
    // One at a time: one whose request has not been read yet would give way to the next.
    EXPECT_TRUE(wait_for([&] {
        clients.emplace_back(m_home.connect_vlaunchd());
        send(clients.back().get(), request.data(), request.size(), MSG_NOSIGNAL);
        return complaints() > 0;
    }));
    const auto ticks = [&] {
        std::ifstream stat("/proc/" + std::to_string(service) + "/stat");
        std::string word;
        long sum = 0;
        for (int field = 1; field <= 15 && stat >> word; ++field)
            sum += field >= 14 ? std::stol(word) : 0;
        return sum;
    };
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    const long before = ticks();
    wait_for([&] { return std::chrono::steady_clock::now() > until; });
    EXPECT_LT(ticks() - before, sysconf(_SC_CLK_TCK) / 4) << "a quarter of that second";
    EXPECT_EQ(complaints(), 1u);
    clients.clear();
    EXPECT_TRUE(wait_for([&] { return ask("list")["status"] == "OK"; }));
}

TEST_F(VlaunchdTest, doesNotServeWhereItsRecordsAreNotItsOwn)
{
    std::filesystem::create_directory(m_home.file("vlaunchd.jobs"));
    chmod(m_home.file("vlaunchd.jobs").c_str(), 0777);
    const ProgramResult result = m_home.run({VLAUNCHD_PROGRAM});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("vlaunchd.jobs: Operation not permitted"));
    EXPECT_EQ(m_home.run({VLAUNCHD_PROGRAM, "--frob"}).status, 2);
    EXPECT_THAT(m_home.run({VLAUNCHD_PROGRAM, "--version"}).out, StartsWith("vlaunchd "));
}

} // namespace
