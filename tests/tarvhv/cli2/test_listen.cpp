#include "tarvhv/cli2.h"

#include "tests/support/scratch.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

class Listen : public testing::Test
{
protected:
    const char *path() const { return m_path.c_str(); }
    // What a killed server leaves: the file without anybody behind it.
    void leave_stale() const { UniqueFd gone(cli2_listen(path())); }

    const ScratchDirectory m_dir;
    const std::string m_path = m_dir.path("a.sock");
};

} // namespace

TEST_F(Listen, servesItsOwnUserPrivately)
{
    const UniqueFd listener(cli2_listen(path()));
    ASSERT_TRUE(listener) << strerror(errno);
    struct stat found;
    ASSERT_EQ(stat(path(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
    EXPECT_EQ(cli2_accept(listener.get()), -1);
    EXPECT_EQ(errno, EAGAIN);

    const UniqueFd client(cli2_connect(path(), "status"));
    const UniqueFd server(cli2_accept(listener.get()));
    ASSERT_TRUE(client && server);
    char line[16];
    ASSERT_EQ(cli2_recv(server.get(), line, sizeof line, 0), 8);
    EXPECT_EQ(std::string(line, 8), "status\r\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_dir.path()), {}), 1);
}

TEST_F(Listen, replacesOnlyAStaleSocket)
{
    leave_stale();
    EXPECT_EQ(cli2_connect(path(), "status"), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    const UniqueFd first(cli2_listen(path()));
    ASSERT_TRUE(first);
    EXPECT_EQ(cli2_listen(path()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_TRUE(UniqueFd(cli2_connect(path(), nullptr)));

    m_dir.write("file", "kept");
    EXPECT_EQ(cli2_listen(m_dir.path("file").c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(m_dir.read("file"), "kept");
    EXPECT_EQ(cli2_listen(m_dir.path("none/a.sock").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(cli2_listen(std::string(200, 'x').c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(Listen, letsOneOfManyStartersWin)
{
    for (int round = 0; round < 20; ++round) {
        leave_stale();
        std::vector<UniqueFd> listeners(8);
        std::vector<std::thread> starters;
        for (UniqueFd &listener : listeners)
            starters.emplace_back([&] { listener.reset(cli2_listen(path())); });
        for (std::thread &starter : starters)
            starter.join();
        EXPECT_EQ(std::count_if(listeners.begin(), listeners.end(),
                                [](const UniqueFd &each) { return bool(each); }),
                  1);
        EXPECT_TRUE(UniqueFd(cli2_connect(path(), nullptr)));
    }
}

TEST_F(Listen, doesNotHangOnAServerWithAFullQueue)
{
    const UniqueFd listener(cli2_listen(path()));
    ASSERT_EQ(listen(listener.get(), 0), 0);
    const UniqueFd waiting(cli2_connect(path(), nullptr));
    EXPECT_EQ(cli2_connect(path(), nullptr), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(cli2_listen(path()), -1);
    EXPECT_EQ(errno, EADDRINUSE);
}
