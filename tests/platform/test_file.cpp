#include "platform/file.h"

#include "platform/host.h"
#include "tests/support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

TEST(file, is_not_emptied_before_its_lock_is_held)
{
    const ScratchDirectory directory;
    directory.write("file", "text");
    const std::string path = directory.path("file");
    UniqueFd reader(platform_openat_locked(AT_FDCWD, path.c_str(), O_RDONLY, FileLock::shared, 0));
    ASSERT_TRUE(reader);
    EXPECT_EQ(platform_openat_locked(AT_FDCWD, path.c_str(), O_WRONLY | O_TRUNC | O_NONBLOCK,
                                     FileLock::exclusive, 0),
              -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(directory.read("file"), "text");
    reader.reset();
    const UniqueFd writer(
        platform_openat_locked(AT_FDCWD, path.c_str(), O_WRONLY | O_TRUNC, FileLock::exclusive, 0));
    EXPECT_TRUE(writer);
    EXPECT_EQ(directory.read("file"), "");

    char found[1024], cut[8];
    ASSERT_EQ(platform_fd_path(writer.get(), found, sizeof found), 0);
    EXPECT_EQ(found, std::filesystem::canonical(path));
    ASSERT_EQ(platform_fd_path(writer.get(), cut, sizeof cut), 0);
    EXPECT_EQ(std::strlen(cut), 7u);
}

TEST(file, keeps_its_length_when_space_is_reserved)
{
    const ScratchDirectory directory;
    directory.write("file", "text");
    const UniqueFd fd(open(directory.path("file").c_str(), O_RDWR));
    if (platform_reserve(fd.get(), 1 << 20) != 0) {
        ASSERT_EQ(errno, ENOTSUP);
        GTEST_SKIP() << "this file system reserves nothing";
    }
    struct stat status;
    ASSERT_EQ(fstat(fd.get(), &status), 0);
    EXPECT_EQ(status.st_size, 4);
    EXPECT_GE(status.st_blocks * 512, 1 << 20);
    EXPECT_EQ(platform_reserve(fd.get(), uint64_t(1) << 60), -1);
    EXPECT_TRUE(errno == ENOSPC || errno == EFBIG) << std::strerror(errno);
    EXPECT_EQ(platform_reserve(fd.get(), 0), 0);
}

TEST(path, can_be_moved)
{
    const auto path = [] { return std::string(platform_path(PlatformPath::support_dir)); };
    unsetenv("TARV_SUPPORT_DIR");
    EXPECT_EQ(path(), "/Library/Application Support/Quelda/Tarv");
    setenv("TARV_SUPPORT_DIR", "/moved", 1);
    EXPECT_EQ(path(), "/moved");
    platform_set_path(PlatformPath::support_dir, "/given");
    EXPECT_EQ(path(), "/given");
    platform_set_path(PlatformPath::support_dir, nullptr);
    EXPECT_EQ(path(), "/moved");
    unsetenv("TARV_SUPPORT_DIR");
}

} // namespace
