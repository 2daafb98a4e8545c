// The small rules that every program shares: who is spoken with, what travels beside the bytes, and
// which word holds.
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/peer.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/cli2/start_mode.h"
#include "tarvhv/cli2/vm_status.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

namespace {

size_t open_descriptors()
{
    return size_t(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

} // namespace

TEST(Places, ofOneVmAgree)
{
    EXPECT_EQ(place_vm_socket("a-b"),
              "/tmp/com.quelda.tarvhv.a-b." + std::to_string(getuid()) + ".sock");
    EXPECT_EQ(place_vm_of_job(place_vm_job("a-b")), "a-b");
    EXPECT_EQ(place_vm_of_job("com.quelda.other.a-b"), "");
    EXPECT_EQ(place_launch_socket("/x/y"), "/x/y");
    EXPECT_EQ(place_launch_socket(""), place_launch_socket(nullptr));
}

TEST(Peer, ofAnotherUserIsNoPeerInAnyDirectory)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to have another user";
    const ScratchDirectory directory;
    const std::string path = directory.path("s");
    ASSERT_EQ(chmod(directory.path().c_str(), 0777), 0);
    const Ends ready, done;
    const pid_t stranger = run_child([&] {
        if (setuid(65534) != 0)
            return 1;
        const UniqueFd listener(cli2_listen(path.c_str()));
        char byte = listener ? 'y' : 'n';
        write(ready.far.get(), &byte, 1);
        read(done.near.get(), &byte, 1);
        // The one that turns away is the client: root is served by anybody.
        const UniqueFd client(cli2_accept(listener.get()));
        return client ? 0 : 2;
    });
    char byte = 0;
    ASSERT_EQ(read(ready.near.get(), &byte, 1), 1);
    ASSERT_EQ(byte, 'y');
    EXPECT_EQ(cli2_connect(path.c_str(), nullptr), -1);
    EXPECT_EQ(errno, ENOENT);
    write(done.far.get(), "x", 1);
    EXPECT_EQ(wait_child(stranger), 0);
}

TEST(Peer, isWatchedOnlyWhileItsConnectionIsOpen)
{
    const ScratchDirectory directory;
    const std::string path = directory.path("s");
    const Ends ready, done;
    const pid_t server = run_child([&] {
        const UniqueFd listener(cli2_listen(path.c_str()));
        write(ready.far.get(), "x", 1);
        pollfd wanted{listener.get(), POLLIN, 0};
        poll(&wanted, 1, -1);
        const UniqueFd first(cli2_accept(listener.get()));
        poll(&wanted, 1, -1);
        { // hangs up on the second, and lives on
            const UniqueFd second(cli2_accept(listener.get()));
        }
        write(ready.far.get(), "x", 1);
        char byte;
        read(done.near.get(), &byte, 1);
        return 0;
    });
    char byte;
    ASSERT_EQ(read(ready.near.get(), &byte, 1), 1);
    const UniqueFd open(cli2_connect(path.c_str(), nullptr));
    const UniqueFd closed(cli2_connect(path.c_str(), nullptr));
    ASSERT_EQ(read(ready.near.get(), &byte, 1), 1);
    const UniqueFd watch(peer_watch(open.get()));
    EXPECT_TRUE(watch);
    EXPECT_EQ(peer_watch(closed.get()), -1);
    EXPECT_EQ(errno, ESRCH);
    pollfd ended{watch.get(), POLLIN, 0};
    EXPECT_EQ(poll(&ended, 1, 0), 0);
    write(done.far.get(), "x", 1);
    EXPECT_EQ(poll(&ended, 1, 30000), 1);
    EXPECT_EQ(wait_child(server), 0);
}

TEST(Descriptors, beyondThoseAskedForAreClosed)
{
    const Ends ends(SOCK_SEQPACKET | SOCK_CLOEXEC);
    const int sent[] = {0, 1, 2};
    char bytes[8];
    for (const size_t room : {size_t(0), size_t(1), size_t(3)}) {
        const size_t before = open_descriptors();
        ASSERT_EQ(descriptors_send(ends.far.get(), "abc", 3, sent), 3);
        std::vector<UniqueFd> fds;
        const auto received =
            descriptors_receive(ends.near.get(), bytes, sizeof bytes, 0, fds, room);
        EXPECT_EQ(received.length, 3);
        EXPECT_EQ(fds.size(), room);
        EXPECT_EQ(received.surplus, room < 3) << room;
        EXPECT_FALSE(received.truncated);
        EXPECT_EQ(open_descriptors(), before + room);
        for (const UniqueFd &each : fds)
            EXPECT_TRUE(fcntl(each.get(), F_GETFD) & FD_CLOEXEC);
    }
    ASSERT_EQ(descriptors_send(ends.far.get(), "abc", 3, {}), 3);
    std::vector<UniqueFd> none;
    EXPECT_TRUE(descriptors_receive(ends.near.get(), bytes, 2, 0, none, 0).truncated);
    EXPECT_EQ(descriptors_receive(ends.near.get(), bytes, 2, 0, none, 0).length, -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(StartMode, survivesItsWayToTheSupervisor)
{
    for (const auto mode : {StartMode::normal, StartMode::forced, StartMode::recovery}) {
        EXPECT_EQ(start_mode_nearest(int32_t(mode)), mode);
        const auto words = start_mode_arguments(mode);
        EXPECT_EQ(words.empty() ? StartMode::normal : start_mode_from(words.back()), mode);
    }
    EXPECT_EQ(start_mode_nearest(-7), StartMode::normal);
    EXPECT_EQ(start_mode_nearest(7), StartMode::recovery);
    for (const char *text : {"", "3", "-1", "00", "a"})
        EXPECT_FALSE(start_mode_from(text)) << text;
}

TEST(VmStatus, hasOnePrecedence)
{
    using enum VmEvidence::Supervisor;
    using LastRun = VmEvidence::LastRun;
    const std::pair<VmEvidence, VmStatus> cases[] = {
        {{answers, LastRun::failed, true}, VmStatus::running},
        {{silent, LastRun::clean, true}, VmStatus::malfunction},
        {{absent, LastRun::failed, true}, VmStatus::failed},
        {{absent, LastRun::unknown, true}, VmStatus::suspended},
        {{absent, LastRun::unknown, false}, VmStatus::unknown},
        {{absent, LastRun::clean, false}, VmStatus::stopped},
    };
    for (const auto &[evidence, status] : cases) {
        EXPECT_EQ(vm_status_of(evidence), status);
        EXPECT_EQ(vm_status_from(vm_status_word(status)), status);
    }
    EXPECT_FALSE(vm_status_from("Running"));
}
