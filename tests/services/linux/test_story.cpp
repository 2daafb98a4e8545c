// One VM's whole life by the controller's command line, with a guest that answers.
#include "tests/guest/guests.h"
#include "tests/services/linux/serial.h"
#include "tests/services/tarvctl/controller_home.h"

#include <gmock/gmock.h>

#include <ctime>

using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

namespace fs = std::filesystem;

class LinuxStory : public ControllerTest
{
protected:
    LinuxStory()
    {
        m_home.set("stop_wait", "100");
        m_home.environment["TARV_DISK_CONTROLLER"] = "virtio-blk";
    }

    // Runs the controller, which must succeed; the answer's body.
    Json done(const std::vector<std::string> &arguments)
    {
        const Json answer = ctl(arguments);
        EXPECT_EQ(answer.value("exit", -1), 0) << arguments[0] << ": " << answer << m_error;
        return answer.contains("body") ? answer["body"] : Json();
    }
    std::string log(const std::string &id) const
    {
        return m_home.file("log/" + id + ".console.log");
    }
    std::string stateFile(const std::string &id)
    {
        return done({"show", id})["configuration"].value("state_file", "");
    }
};

TEST_F(LinuxStory, suspendsResumesCopiesRebootsStopsAndGoes)
{
    SKIP_WITHOUT_LINUX_GUEST();
    const std::string id = done({"create", "--ram-size", "256M", "--disk-size", "64M",
                                 "--cpu-count", "1", "linux", TARV_GUEST_DIR "/linux.img"})
                               .value("id", "");
    const std::string disk = id + "-disk0.qcow2";
    EXPECT_THAT(names("images"), UnorderedElementsAre(disk));
    Serial serial(log(id));
    done({"start", "-fv", id});
    ASSERT_TRUE(serial.says("boot 1"));
    ASSERT_TRUE(serial.goesOn(3));

    done({"suspend", "linux"});
    const size_t said = serial.ticks().size();
    const Tick before = serial.ticks().back();
    EXPECT_EQ(status(id), "suspended");
    const std::string state = stateFile(id);
    EXPECT_THAT(names("images"), UnorderedElementsAre(disk, state));
    EXPECT_THAT(names("vms/" + id), UnorderedElementsAre("config.yaml"));
    EXPECT_FALSE(fs::exists(vm_socket(id)));

    const std::string copy = done({"clone", "--copy", id, "copy"}).value("id", "");
    const std::string copied_disk = copy + "-disk0.qcow2";
    EXPECT_THAT(names("images"), UnorderedElementsAre(disk, state, copied_disk, stateFile(copy)));
    const time_t resumed = time(nullptr);
    Serial copied(log(copy));
    done({"start", copy, id});
    ASSERT_TRUE(serial.goesOn(2));
    ASSERT_TRUE(copied.goesOn(2));
    EXPECT_EQ(status(copy), "running");
    for (const Tick &after : {serial.ticks().at(said), copied.ticks().front()}) {
        // A line of which the suspension has cut the end is no tick.
        EXPECT_GT(after.number, before.number);
        EXPECT_LE(after.number, before.number + 2) << "the guest did not go on where it was";
        EXPECT_GE(after.clock, before.clock);
        EXPECT_GE(after.rtc, resumed - 1) << "the CMOS clock stood still";
    }
    EXPECT_THAT(names("images"), UnorderedElementsAre(disk, copied_disk)) << "a state is left";
    done({"stop", "--force", copy});
    done({"delete", "--yes", copy});
    EXPECT_THAT(names("images"), UnorderedElementsAre(disk));

    done({"reboot", id});
    ASSERT_TRUE(serial.says("boot 2"));
    ASSERT_TRUE(serial.says("tick 1 "));
    ASSERT_TRUE(serial.says("input Power Button"));
    done({"stop", id});
    EXPECT_EQ(status(id), "stopped");
    EXPECT_THAT(serial.text(), HasSubstr("guest: power button"));
    const std::string supervised = file_text(m_home.file("log/" + id + ".log"));
    EXPECT_THAT(supervised, HasSubstr("asking the guest to power off"));
    EXPECT_THAT(supervised, HasSubstr("the guest is off: guest-shutdown"));
    EXPECT_THAT(supervised, Not(HasSubstr("to the engine"))) << "no signal was needed";

    done({"delete", "--yes", id});
    EXPECT_TRUE(names("images").empty());
    EXPECT_TRUE(names("vms").empty());
    for (const std::string &each : {id, copy})
        EXPECT_FALSE(fs::exists(vm_socket(each)));
}

} // namespace
