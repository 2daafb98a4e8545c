#include "platform/memory.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// What a peer can do with a descriptor that it got, or with one that it opened from it to write.
void expectOnlyToBeRead(int fd)
{
    EXPECT_FALSE(MappedMemory(fd, 1, Mapping::writable));
    EXPECT_EQ(pwrite(fd, "x", 1, 0), -1);
    EXPECT_EQ(ftruncate(fd, 0), -1);
    EXPECT_EQ(ftruncate(fd, 1 << 20), -1);
    EXPECT_EQ(fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096), -1);
    const MappedMemory seen(fd, 1);
    ASSERT_TRUE(seen);
    EXPECT_EQ(mprotect(seen.bytes(), 1, PROT_READ | PROT_WRITE), -1);
}

void expectOnlyToBeRead(const SealedMemory &memory)
{
    expectOnlyToBeRead(memory.fd.get());
    const std::string name = "/proc/self/fd/" + std::to_string(memory.fd.get());
    const UniqueFd anew(open(name.c_str(), O_RDWR | O_CLOEXEC));
    if (anew)
        expectOnlyToBeRead(anew.get());
}

TEST(memory, is_written_by_its_maker_alone)
{
    const SealedMemory kept = platform_memory_of("test", "text");
    ASSERT_TRUE(kept);
    expectOnlyToBeRead(kept);
    EXPECT_EQ(MappedMemory(kept.fd.get(), kept.size).text(), "text");

    MappedMemory writer;
    const SealedMemory shared = platform_memory_shared("test", 8192, &writer);
    ASSERT_TRUE(shared);
    expectOnlyToBeRead(shared);
    const MappedMemory seen(shared.fd.get(), 8192);
    writer.bytes()[8191] = 'x';
    EXPECT_EQ(seen.text().back(), 'x');
}

TEST(memory, of_a_peer_is_measured_only_where_it_can_not_shrink)
{
    EXPECT_EQ(platform_memory_size(platform_memory_of("test", "text").fd.get(), true), 4);
    const UniqueFd unsealed(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(platform_memory_size(unsealed.get(), /*sealed=*/false), 0);
    EXPECT_EQ(platform_memory_size(unsealed.get(), /*sealed=*/true), -1);
    EXPECT_EQ(errno, EPERM);
    const UniqueFd file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(platform_memory_size(file.get(), /*sealed=*/false), -1);
    EXPECT_EQ(errno, EPERM);
}

} // namespace
