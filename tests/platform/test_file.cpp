#include "platform/file.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

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

} // namespace
