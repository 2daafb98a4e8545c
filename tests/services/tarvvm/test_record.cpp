// The record of a supervised VM, whoever else has a hand on it.
#include "services/tarvvm/core/record.h"

#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/file.h>

namespace {

constexpr const char *ID = "11111111-2222-3333-4444-555555555555";
constexpr const char *OTHER = "66666666-2222-3333-4444-555555555555";

class VmRecordTest : public testing::Test
{
protected:
    VmRecordTest()
    {
        for (const char *id : {ID, OTHER})
            m_home.write("vms/" + std::string(id) + "/config.yaml", "name: one\nfirmware: bios\n");
        m_home.write("images/old.state", "old");
        m_home.write("images/new.state", "new");
        m_home.write("settings.ini", "[tarv]\nvm_lib_dir = " + m_home.path("vms") +
                                         "\nimg_lib_dir = " + m_home.path("images") + "\n");
    }
    // In a process of its own, as settings are read once.
    int inProcess(const std::function<int()> &body)
    {
        return wait_child(run_child([&] {
            setenv("TARV_CONFIG_PATH", m_home.path("settings.ini").c_str(), 1);
            return body();
        }));
    }
    std::string config(const char *id = ID) const
    {
        return m_home.read("vms/" + std::string(id) + "/config.yaml");
    }

    ScratchDirectory m_home;
};

TEST_F(VmRecordTest, lateRemovalNeverTakesANewerState)
{
    EXPECT_EQ(inProcess([] {
                  VmRecord record;
                  return record.find(ID) || record.writeState("new.state") ||
                                 !record.removeState("old.state")
                             ? 1
                             : 0;
              }),
              0);
    EXPECT_THAT(config(), testing::HasSubstr("state_file: new.state"));
    EXPECT_EQ(m_home.read("images/new.state"), "new");
    EXPECT_EQ(inProcess([] {
                  VmRecord record;
                  return record.find(ID) || !record.removeState("new.state") ? 1 : 0;
              }),
              0);
    EXPECT_EQ(config(), "name: one\nfirmware: bios\n");
    EXPECT_EQ(m_home.read("images/new.state"), "");
}

// Whether another VM needs an image can't be seen while a stranger holds its record: then the image
// stays, and nobody waits.
TEST_F(VmRecordTest, recordThatAStrangerLocksDelaysNoOtherVm)
{
    const std::string stray = "images/" + std::string(ID) + "-12.state";
    m_home.write(stray, "never recorded");
    const UniqueFd stranger(
        open(m_home.path("vms/" + std::string(OTHER) + "/config.yaml").c_str(), O_RDONLY));
    const auto prepare = [] {
        alarm(20);
        VmRecord record;
        if (record.find(ID))
            return 1;
        record.prepare(); // fails where QEMU is missing, after what is looked at here or before
        return 0;
    };
    ASSERT_EQ(flock(stranger.get(), LOCK_EX), 0);
    EXPECT_EQ(inProcess(prepare), 0);
    EXPECT_EQ(m_home.read(stray), "never recorded");
}

} // namespace
