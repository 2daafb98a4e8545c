// Controllers that are killed, meet each other, or find a supervisor that is stuck or dead. The
// supervisor and QEMU are the real ones.
#include "tests/services/tarvctl/controller_home.h"
#include "tests/support/small_disk.h"

#include <gmock/gmock.h>

#include <csignal>
#include <iostream>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class FaultsTest : public ControllerTest
{
protected:
    FaultsTest() { m_home.set("supervisor_executable", TARVVM_PROGRAM); }

    pid_t spawn(std::vector<std::string> argv, int out = 2)
    {
        argv.insert(argv.begin(), TARVCTL_PROGRAM);
        return m_home.spawn(argv, out);
    }
    // Images that no listed VM and no other image stands on, and directories that are no VM's.
    std::vector<std::string> leftovers()
    {
        std::string known;
        const Json list = ctl({"list"});
        for (const Json &vm : list["body"])
            known += ctl({"show", vm["id"]})["body"].dump();
        for (const std::string &name : names("images"))
            known += file_text(m_home.file("images/" + name)).substr(0, 4096); // names its base
        std::vector<std::string> result;
        for (const char *directory : {"vms", "images"})
            for (const std::string &name : names(directory))
                if (known.find(name) == std::string::npos)
                    result.push_back(name);
        return result;
    }
};

TEST_F(FaultsTest, noMomentOfAKillLeavesAnythingHalfMade)
{
    create("source");
    std::ofstream(m_home.file("raw.img")) << std::string(4 << 20, 'y');
    const std::vector<std::vector<std::string>> commands = {
        {"create", "--disk-size", "8M", "made", m_home.file("raw.img")},
        {"clone", "--copy", "source", "made"},
        {"clone", "source", "made"}};
    for (const auto &command : commands) {
        SCOPED_TRACE(command[0] + " " + command[1]);
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_EQ(ctl(command)["exit"], 0);
        const auto whole = std::chrono::steady_clock::now() - begin;
        ASSERT_EQ(ctl({"delete", "--yes", "made"})["exit"], 0);
        constexpr int moments = 10;
        for (int moment = 0; moment < moments; ++moment) {
            const auto end = std::chrono::steady_clock::now() + whole * moment / moments;
            const pid_t pid = spawn(command);
            wait_for([&] { return std::chrono::steady_clock::now() >= end; });
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            const Json list = ctl({"list"});
            for (const Json &vm : list["body"])
                EXPECT_FALSE(vm.contains("fault")) << vm;
            // The next maker finishes or clears up what it finds.
            const Json next = ctl({"clone", "--copy", "source", "next"});
            ASSERT_EQ(next["exit"], 0) << next;
            EXPECT_THAT(leftovers(), IsEmpty()) << "moment " << moment;
            ctl({"delete", "--yes", "made"});
            ASSERT_EQ(ctl({"delete", "--yes", "next"})["exit"], 0);
        }
    }
    EXPECT_EQ(ctl({"start", "source"})["exit"], 0);
}

TEST_F(FaultsTest, stuckAndDeadSupervisorsAreToldAndCleared)
{
    const std::string id = create("vm");
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    const pid_t pid = ctl({"show", id})["body"]["running"]["pid"];
    kill(pid, SIGSTOP);
    EXPECT_EQ(status(id), "malfunction");
    const struct
    {
        std::vector<std::string> command;
        int status;
        const char *message;
    } cases[] = {
        {{"show", id}, 0, "\"status\":\"malfunction\""},
        {{"start", id}, 8, "tarvctl stop --force ends a supervisor that hangs"},
        {{"stop", id}, 8, "tarvctl stop --force ends a supervisor that hangs"},
        {{"suspend", id}, 8, "tarvctl stop --force ends a supervisor that hangs"},
        {{"reboot", id}, 8, "tarvctl stop --force ends a supervisor that hangs"},
        {{"delete", "--yes", id}, 4, "is running; stop it to delete it"},
        {{"clone", id, "c"}, 4, "is running; stop it to clone it"},
    };
    std::vector<pid_t> pids; // all at once, as each takes its time
    const auto output = [&](const auto &each) { return m_home.file(each.command[0] + ".out"); };
    for (const auto &each : cases)
        pids.push_back(spawn(each.command, UniqueFd(creat(output(each).c_str(), 0600)).get()));
    for (size_t i = 0; i < pids.size(); i++) {
        int result = -1;
        waitpid(pids[i], &result, 0);
        EXPECT_EQ(WEXITSTATUS(result), cases[i].status) << cases[i].command[0];
        EXPECT_THAT(file_text(output(cases[i])), HasSubstr(cases[i].message));
    }
    EXPECT_EQ(ctl({"stop", "--force", id})["exit"], 0);
    EXPECT_TRUE(wait_for([&] { return processes_with(id).empty(); }));
    EXPECT_EQ(status(id), "stopped");
    const std::string log = file_text(m_home.file("log/" + id + ".log"));
    EXPECT_EQ(log.find(": running, engine"), log.rfind(": running, engine")) << "told once";

    // A killed one leaves its socket file, which is in nobody's way.
    for (const char *next : {"start", "delete"}) {
        ASSERT_EQ(ctl({"start", id})["exit"], 0);
        kill(ctl({"show", id})["body"]["running"]["pid"].get<pid_t>(), SIGKILL);
        EXPECT_TRUE(wait_for([&] { return status(id) == "failed"; }));
        EXPECT_TRUE(wait_for([&] { return processes_with(id).empty(); }));
        EXPECT_TRUE(std::filesystem::exists(vm_socket(id)));
        EXPECT_EQ(ctl({"stop", id})["exit"], 4);
        std::ofstream(m_home.file("images/" + id + "-12.state")) << "never recorded";
        std::ofstream(m_home.file("images/." + id + ".state-abcdef")) << "not whole";
        ASSERT_EQ(ctl({next, next[0] == 'd' ? "--yes" : "-f", id})["exit"], 0);
        EXPECT_EQ(std::filesystem::exists(vm_socket(id)), next[0] == 's');
        ctl({"stop", "--force", id});
    }
    EXPECT_THAT(names("images"), IsEmpty());
}

TEST_F(FaultsTest, fullDiskLeavesTheLibraryAsItWas)
{
    SmallDisk images(m_home.file("images"), "4m"), records(m_home.file("vms"), "256k");
    if (!images.mounted() || !records.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    std::ofstream(m_home.file("raw.img")) << std::string(1 << 20, 'y');
    const std::string id = create("vm");
    // With a longer name the record needs another block.
    std::ofstream(m_home.file("vms/" + id + "/config.yaml"), std::ios::app)
        << "filler: " << std::string(4000 - record(id).size(), 'x') << "\n";
    const std::string whole = record(id);
    const auto before = names("images");
    images.fill(256 << 10);
    EXPECT_EQ(ctl({"clone", "--copy", "vm", "c"})["exit"], 7);
    const Json early = ctl({"create", "--disk-size", "4M", "c", m_home.file("raw.img")});
    EXPECT_EQ(early["exit"], 7);
    EXPECT_THAT(early["message"].get<std::string>(), HasSubstr("no space"));
    // Small to the eye, so that only the copying finds out.
    m_home.run({"/usr/bin/qemu-img", "convert", "-c", "-O", "qcow2", m_home.file("raw.img"),
                m_home.file("packed.qcow2")});
    EXPECT_EQ(ctl({"create", "--disk-size", "4M", "c", m_home.file("packed.qcow2")})["exit"], 7);
    images.fill();
    EXPECT_EQ(ctl({"clone", "vm", "c"})["exit"], 7);
    images.release();
    records.fill();
    EXPECT_EQ(ctl({"clone", "vm", "c"})["exit"], 7);
    EXPECT_EQ(ctl({"modify", "vm", "set", "name", std::string(200, 'n')})["exit"], 7);
    records.release();
    EXPECT_EQ(record(id), whole);
    EXPECT_EQ(names("images"), before);
    EXPECT_EQ(ctl({"list", "--quiet"})["body"], Json::array({id}));
}

// Deleting is what makes room.
TEST_F(FaultsTest, deletesWhereThereIsNoRoomAtAll)
{
    SmallDisk images(m_home.file("images"), "4m"), records(m_home.file("vms"), "256k");
    if (!images.mounted() || !records.mounted())
        GTEST_SKIP() << "no small file system can be mounted here";
    create("vm");
    ASSERT_EQ(ctl({"clone", "vm", "other"})["exit"], 0);
    const std::string last = create("last");
    images.fill();
    records.fill();
    const auto deleted = [&](const char *name) {
        const Json answer = ctl({"delete", "--yes", name});
        EXPECT_EQ(answer["exit"], 0) << answer;
    };
    // What the clone stands on stays until it goes itself.
    deleted("vm");
    EXPECT_EQ(ctl({"start", "other"})["exit"], 0);
    EXPECT_EQ(ctl({"stop", "--force", "other"})["exit"], 0);
    deleted("other");
    // One that was killed in the middle is finished by the next maker.
    std::filesystem::rename(m_home.file("vms/" + last + "/config.yaml"),
                            m_home.file("vms/" + last + "/config.deleted"));
    EXPECT_EQ(ctl({"list", "--quiet"})["body"], Json::array());
    images.release();
    records.release();
    create("next");
    EXPECT_THAT(leftovers(), IsEmpty());
}

TEST_F(FaultsTest, aVmKeepsTheMachineThatItWasMadeFor)
{
    const std::string id = create("vm"), older = "pc-q35-6.0";
    const auto machine = [&] {
        return ctl({"show", id})["body"]["configuration"].value("machine", "none");
    };
    const auto set = [&](const std::string &type) {
        return ctl({"modify", id, "set", "machine", type})["exit"];
    };
    const std::string newest = machine();
    const std::string file = m_home.file("vms/" + id + "/config.yaml");
    // A record from before gets its machine with a cold start.
    std::string text = record(id);
    const size_t line = text.find("machine: ");
    text.erase(line, text.find('\n', line) + 1 - line);
    std::ofstream(file) << text;
    EXPECT_EQ(machine(), "none");
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    EXPECT_EQ(machine(), newest);
    EXPECT_EQ(set(older), 4) << "it runs";
    ASSERT_EQ(ctl({"stop", "--force", id})["exit"], 0);
    EXPECT_EQ(set("pc-q35-99.9"), 6);
    EXPECT_EQ(set(older), 0);
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    ASSERT_EQ(ctl({"suspend", id})["exit"], 0);
    EXPECT_EQ(set("newest"), 4) << "its state fits no other machine";
    ASSERT_EQ(ctl({"start", id})["exit"], 0) << "resumed by the machine that saved it";
    ASSERT_EQ(ctl({"stop", "--force", id})["exit"], 0);
    EXPECT_EQ(set("newest"), 0);
    EXPECT_EQ(machine(), newest);
    text = record(id);
    text.replace(text.find(newest), newest.size(), "pc-q35-99.9");
    std::ofstream(file) << text;
    EXPECT_THAT(ctl({"doctor"})["body"].dump(), HasSubstr("was made for pc-q35-99.9"));
    const Json start = ctl({"start", id});
    EXPECT_NE(start["exit"], 0);
    EXPECT_THAT(start["message"].get<std::string>(), HasSubstr("machine type"));
}

// Whichever comes first, each answer is true afterwards.
TEST_F(FaultsTest, pairsOfControllersTellTheTruth)
{
    const struct
    {
        std::vector<std::string> argv;
        const char *leads_to; // status after it succeeded; "": it changes none
    } commands[] = {
        {{"start", "vm"}, "running"},     {{"stop", "vm"}, "stopped"},
        {{"suspend", "vm"}, "suspended"}, {{"stop", "--force", "vm"}, "stopped"},
        {{"clone", "vm", "c"}, ""},       {{"modify", "vm", "set", "audio", "on"}, ""},
        {{"reboot", "vm"}, ""},           {{"delete", "--yes", "c"}, ""},
    };
    const char *given = getenv("TARV_TEST_SEED");
    const unsigned seed = given ? unsigned(atoi(given)) : std::random_device()();
    std::cout << "seed " << seed << " (TARV_TEST_SEED)" << std::endl;
    std::mt19937 random(seed);
    const std::string id = create("vm");
    std::string before = "stopped";
    for (int round = 0; round < 20; ++round) {
        std::string trace = before, allowed;
        const UniqueFd out(open(m_home.file("pair").c_str(),
                                O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
        std::vector<std::pair<pid_t, size_t>> pair;
        for (int side = 0; side < 2; ++side) {
            const size_t chosen = random() % std::size(commands);
            pair.emplace_back(spawn(commands[chosen].argv, out.get()), chosen);
        }
        bool modified = false;
        for (const auto &[pid, chosen] : pair) {
            int result = -1;
            waitpid(pid, &result, 0);
            result = WEXITSTATUS(result);
            trace += ", " + commands[chosen].argv[0] + " " + std::to_string(result);
            // A guest without a system of its own does not power off when it is asked to: 10.
            EXPECT_THAT(result, testing::AnyOf(0, 1, 3, 4, 5, 10));
            if (result == 0)
                allowed += commands[chosen].leads_to;
            // One that is stopped before its saved state was loaded keeps it.
            if (result == 0 && commands[chosen].argv[0] == "stop" && before == "suspended")
                allowed += " suspended";
            modified = modified || (result == 0 && commands[chosen].argv[0] == "modify");
        }
        const std::string after = status(id);
        SCOPED_TRACE("round " + std::to_string(round) + ": " + trace + ": " + after + "\n" +
                     file_text(m_home.file("pair")));
        EXPECT_THAT(allowed.empty() ? before : allowed, HasSubstr(after));
        const Json shown = ctl({"show", id})["body"]["configuration"];
        ASSERT_EQ(shown.value("name", ""), "vm") << shown;
        const std::string file = shown["hard_drives"][0]["file"];
        EXPECT_TRUE(std::filesystem::exists(m_home.file("images/" + file))) << file;
        EXPECT_EQ(shown.contains("state_file"), after == "suspended");
        EXPECT_TRUE(!modified || shown["audio"] == true);
        EXPECT_EQ(processes_with(id).empty(), after != "running");
        before = after;
    }
    ctl({"stop", "--force", id});
    ctl({"delete", "--yes", "c"});
    EXPECT_EQ(ctl({"delete", "--yes", id})["exit"], 0);
    EXPECT_THAT(names("vms"), IsEmpty());
    EXPECT_THAT(names("images"), IsEmpty());
    EXPECT_THAT(processes_with(id), IsEmpty());
}

} // namespace
