#include "hostlib/vm/img.h"

#include "tests/hostlib/vm/home.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

class Queue : public testing::Test
{
protected:
    Queue() { Home::get().clear(); }

    const fs::path images = Home::get().images;
    const fs::path file = images / ".removal-queue";
};

} // namespace

TEST_F(Queue, keepsRelativeImagesUntilThePurge)
{
    write_file(images / "a.img", "");
    write_file(images / "b c.img", "");
    write_file(images / "needed.img", "");
    write_file(Home::get().dir / "absolute", "");
    for (const char *name : {"a.img", "b c.img", "needed.img", "<stb>", "a.img"})
        EXPECT_EQ(img_unlink(name), 0);
    EXPECT_EQ(img_unlink((Home::get().dir / "absolute").c_str()), 0);
    EXPECT_FALSE(fs::exists(Home::get().dir / "absolute"));
    EXPECT_TRUE(fs::exists(images / "a.img"));
    EXPECT_EQ(read_file(file), "a.img\nb c.img\nneeded.img\n<stb>\n");

    const auto needed = [](const char *name, void *) { return strcmp(name, "needed.img") == 0; };
    EXPECT_EQ(img_purge(needed, nullptr), 2);
    EXPECT_EQ(read_file(file), "needed.img\n");
    EXPECT_TRUE(fs::exists(images / "needed.img"));
    EXPECT_EQ(img_purge(nullptr, nullptr), 1);
    EXPECT_EQ(read_file(file), "");
}

TEST_F(Queue, refusesNamesThatLeadOutOfTheLibrary)
{
    for (const char *name : {"", "..", "../x", "a/../../x", "a\nb"}) {
        EXPECT_EQ(img_unlink(name), -1) << name;
        EXPECT_EQ(errno, EINVAL) << name;
    }
    EXPECT_EQ(img_unlink(nullptr), -1);
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(Queue, distrustsLinesThatItDidNotWrite)
{
    write_file(Home::get().dir / "outside", "");
    write_file(images / "half", "");
    write_file(images / "whole", "");
    fs::create_directory(images / "directory");
    write_file(file, "../outside\n\nwhole\ndirectory\nhalf");
    EXPECT_EQ(img_purge(nullptr, nullptr), 1);
    EXPECT_TRUE(fs::exists(Home::get().dir / "outside"));
    EXPECT_TRUE(fs::exists(images / "half"));
    EXPECT_EQ(read_file(file), "directory\n");
}

TEST_F(Queue, losesNothingToASecondProcess)
{
    std::vector<pid_t> children;
    for (int child = 0; child < 4; ++child)
        children.push_back(run_child([child] {
            int failed = 0;
            for (int i = 0; i < 25; ++i)
                failed |= img_unlink((std::to_string(child) + "-" + std::to_string(i)).c_str());
            return failed;
        }));
    for (const pid_t child : children)
        EXPECT_EQ(wait_child(child), 0);
    const std::string text = read_file(file);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 100);
}
