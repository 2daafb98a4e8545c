#include "platform/new_file.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

mode_t mode_of(const std::string &path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

size_t entries(const ScratchDirectory &directory)
{
    const std::filesystem::directory_iterator all(directory.path());
    return size_t(std::distance(begin(all), end(all)));
}

TEST(new_file, replaces_whole_and_keeps_the_mode_of_the_old_one)
{
    const ScratchDirectory directory;
    const std::string path = directory.path("file");
    const UniqueFd dirfd(open(directory.path().c_str(), O_PATH | O_DIRECTORY));
    ASSERT_EQ(platform_replace_file(dirfd.get(), "file", "first", 0600, FileMakers::many), 0);
    EXPECT_EQ(mode_of(path), 0600u);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    // What a killed maker left is neither read nor in the way.
    directory.write(".file.new", "a longer text than what follows");
    const UniqueFd old(open(path.c_str(), O_RDONLY));
    ASSERT_EQ(platform_replace_file(AT_FDCWD, path.c_str(), "second", 0600, FileMakers::one), 0);
    EXPECT_EQ(directory.read("file"), "second");
    EXPECT_EQ(mode_of(path), 0640u);
    EXPECT_EQ(entries(directory), 1u);
    char text[8] = {};
    EXPECT_EQ(read(old.get(), text, sizeof text), 5) << "who had it open keeps the old text";
}

TEST(new_file, says_which_step_failed_and_leaves_nothing)
{
    const ScratchDirectory directory;
    FileStep step = FileStep::none;
    EXPECT_EQ(platform_replace_file(AT_FDCWD, directory.path("no/file").c_str(), "", 0600,
                                    FileMakers::one, &step),
              -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(step, FileStep::make);
    std::filesystem::create_directory(directory.path("file"));
    EXPECT_EQ(platform_replace_file(AT_FDCWD, directory.path("file").c_str(), "text", 0600,
                                    FileMakers::one, &step),
              -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(step, FileStep::name);
    EXPECT_EQ(entries(directory), 1u);
}

TEST(new_file, is_published_only_where_there_is_none)
{
    const ScratchDirectory directory;
    const std::string path = directory.path("file");
    NewFile first, second;
    ASSERT_GE(first.make(AT_FDCWD, path.c_str(), 0600, FileMakers::many), 0);
    ASSERT_GE(second.make(AT_FDCWD, path.c_str(), 0600, FileMakers::many), 0);
    ASSERT_EQ(platform_write_all(first.fd(), "first"), 0);
    EXPECT_EQ(first.publish(), 0);
    EXPECT_EQ(second.publish(), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(second.failed(), FileStep::name);
    EXPECT_EQ(directory.read("file"), "first");
}

} // namespace
