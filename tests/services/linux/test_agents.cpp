// The pasteboard of the Linux guest, with the agents of Debian inside it.
#include "tests/guest/guests.h"
#include "tests/services/linux/serial.h"
#include "tests/services/tarvvm/live_vm.h"

#include "platform/memory.h"
#include "services/tarvvm/pasteboard/pasteboard_archive.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

constexpr uint32_t BOTH = DISPLAY_CAP_COPY | DISPLAY_CAP_PASTE;

class LinuxAgents : public testing::Test
{
protected:
    void give(LiveViewer &viewer, const std::string &text)
    {
        const std::string bytes = pasteboard_archive_write({text, ""});
        const SealedMemory memory = platform_memory_of("test", bytes);
        viewer.send(DISPLAY_PASTEBOARD_SEND, {int32_t(bytes.size())}, memory.fd.get());
    }
    // Polls as a window does.
    bool gets(LiveViewer &viewer, const std::string &text)
    {
        return wait_for([&] {
            viewer.send(DISPLAY_PASTEBOARD_ASK, {1});
            PasteboardContents contents;
            return viewer.take() && pasteboard_archive_read(viewer.pasteboard(), &contents) &&
                   contents.text == text;
        });
    }
    bool hasCaps(LiveViewer &viewer, uint32_t caps)
    {
        return wait_for([&] { return viewer.take() && viewer.caps() == caps; },
                        std::chrono::seconds(180));
    }
};

TEST_F(LinuxAgents, shareThePasteboardRestartAreSuspendedAndGoWithAReset)
{
    SKIP_WITHOUT_LINUX_GUEST();
    LiveVm vm("linux");
    const ProgramResult made =
        vm.home().run({"/usr/bin/python3", MAKE_AGENTS, GUEST_BUSYBOX, vm.file("images/agents")});
    if (made.status != 0)
        GTEST_SKIP() << "the agents are missing: " << made.err;
    vm.write("vms/" + vm.id() + "/config.yaml",
             "name: live\nram: {size: 536870912}\n"
             "hard_drives:\n- {file: disk.img}\n- {file: agents, format: raw}\n");
    Serial serial(vm.file("log/" + vm.id() + ".console.log"));
    ASSERT_TRUE(vm.startAndRun());
    {
        LiveViewer viewer(vm);
        EXPECT_EQ(viewer.caps(), 0u);
        ASSERT_TRUE(hasCaps(viewer, BOTH)) << serial.text();
        give(viewer, "copy \xf0\x9d\x84\x9e one");
        EXPECT_TRUE(gets(viewer, "\xf0\x9d\x84\x9e one"));
        give(viewer, "restart");
        EXPECT_TRUE(hasCaps(viewer, 0));
        EXPECT_TRUE(hasCaps(viewer, BOTH));
        give(viewer, "copy two");
        EXPECT_TRUE(gets(viewer, "two"));
    }
    EXPECT_EQ(vm.ask("suspend\r\n").status(), "OK");
    EXPECT_EQ(vm.wait(), 0);
    ASSERT_TRUE(vm.startAndRun());
    LiveViewer viewer(vm);
    ASSERT_TRUE(hasCaps(viewer, BOTH)) << "the resumed guest's agent is not asked who it is";
    give(viewer, "copy three");
    EXPECT_TRUE(gets(viewer, "three"));
    EXPECT_EQ(vm.ask("reboot\r\n").status(), "OK");
    EXPECT_TRUE(hasCaps(viewer, 0));
}

} // namespace
