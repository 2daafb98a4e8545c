// The power goes off at the moment a command answered 0: what it answered is on the disk.
#include "tests/services/tarvctl/controller_home.h"
#include "tests/support/journalled_disk.h"

#include <gmock/gmock.h>

#include <map>

using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;
using Files = std::map<std::string, std::string>;

// What a library holds, by name and contents, but for locks and what is queued to be removed.
Files files_below(const std::string &directory)
{
    Files files;
    for (auto entry = fs::recursive_directory_iterator(directory);
         entry != fs::recursive_directory_iterator(); ++entry) {
        const std::string name = entry->path().filename();
        if (name[0] == '.' || name == "lost+found")
            entry.disable_recursion_pending();
        else
            files[fs::relative(entry->path(), directory)] =
                entry->is_directory() ? "" : file_text(entry->path());
    }
    return files;
}

class PowerLoss : public ControllerTest, public testing::WithParamInterface<const char *>
{
protected:
    PowerLoss() : m_disk(GetParam(), m_home.file("disk"))
    {
        for (const char *name : {"vms", "images"})
            fs::create_directory(m_home.file("disk/") + name);
        fs::create_directory(m_home.file("after"));
        sync(); // the library's own folders are not what is tested
        m_home.set("vm_lib_dir", m_home.file("disk/vms"));
        m_home.set("img_lib_dir", m_home.file("disk/images"));
        m_home.set("supervisor_executable", TARVVM_PROGRAM);
    }
    // Runs a command and cuts the power when it has answered; the answer's body.
    Json cut(const std::vector<std::string> &arguments)
    {
        const Json answer = ctl(arguments);
        m_disk.cut();
        EXPECT_EQ(answer.value("exit", -1), 0) << arguments[0] << ": " << answer << m_error;
        const std::string after = m_home.file("after");
        EXPECT_TRUE(m_disk.openCopy(after));
        const Files live = files_below(m_home.file("disk")), left = files_below(after);
        EXPECT_TRUE(m_disk.closeCopy(after)) << arguments[0] << ": the file system is damaged";
        for (const auto &[name, text] : live)
            EXPECT_TRUE(left.contains(name) && left.at(name) == text)
                << arguments[0] << ": " << name << " is lost or not whole";
        for (const auto &[name, text] : left)
            EXPECT_TRUE(live.contains(name)) << arguments[0] << ": " << name << " is back";
        return answer.contains("body") ? answer["body"] : Json();
    }
    void round();

    JournalledDisk m_disk;
};

void PowerLoss::round()
{
    const std::string id = cut({"create", "--ram-size", "64M", "--disk-size", "4M", "--cpu-count",
                                "1", "vm", TARV_GUEST_DIR "/text.img"})
                               .value("id", "");
    cut({"modify", id, "set", "name", "renamed"});
    ASSERT_EQ(ctl({"start", id})["exit"], 0);
    cut({"suspend", id});
    cut({"clone", "--copy", id, "copy"});
    cut({"clone", id, "layer"});
    cut({"stop", "--force", "copy"}); // drops its saved state
    cut({"delete", "--yes", "copy"});
    cut({"delete", "--yes", "layer"});
}

TEST_P(PowerLoss, losesNothingThatWasAnsweredAsDone)
{
    if (!m_disk.mounted())
        GTEST_SKIP() << "no " << GetParam() << " can be made or mounted here";
    const char *asked = getenv("TARV_POWER_ROUNDS");
    for (int rounds = asked ? atoi(asked) : 1; rounds > 0 && !HasFailure(); rounds--) {
        round();
        // What the last cut left is gone on with: the guest is resumed from it.
        ASSERT_TRUE(m_disk.replaceByCopy());
        const Json list = ctl({"list"});
        ASSERT_EQ(list["body"].size(), 1u) << list;
        const std::string id = list["body"][0]["id"];
        EXPECT_EQ(list["body"][0]["status"], "suspended");
        EXPECT_EQ(ctl({"start", id})["exit"], 0) << m_error;
        EXPECT_THAT(file_text(m_home.file("log/" + id + ".log")), HasSubstr("resuming from"));
        EXPECT_EQ(ctl({"stop", "--force", id})["exit"], 0);
        EXPECT_EQ(ctl({"delete", "--yes", id})["exit"], 0);
    }
}

INSTANTIATE_TEST_SUITE_P(On, PowerLoss, testing::Values("ext4", "xfs"),
                         [](const auto &kind) { return std::string(kind.param); });

} // namespace
