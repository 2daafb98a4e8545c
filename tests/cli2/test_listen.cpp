#include "tarvhv/cli2.h"

#include "platform/unique_fd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace {

class Listen : public testing::Test
{
protected:
    Listen()
    {
        char name[] = "/tmp/test-cli2-XXXXXX";
        m_dir = mkdtemp(name);
        m_path = m_dir / "a.sock";
    }
    ~Listen() override { std::filesystem::remove_all(m_dir); }

    const char *path() const { return m_path.c_str(); }
    // What a killed server leaves: the file without anybody behind it.
    void leave_stale() const { UniqueFd gone(cli2_listen(path())); }

    std::filesystem::path m_dir, m_path;
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
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_dir), {}), 1);
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

    const std::string file = m_dir / "file", missing = m_dir / "none/a.sock";
    std::ofstream(file) << "kept";
    EXPECT_EQ(cli2_listen(file.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(std::filesystem::file_size(file), 4u);
    EXPECT_EQ(cli2_listen(missing.c_str()), -1);
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
