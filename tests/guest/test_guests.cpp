// Boots each guest in QEMU and checks its pixels against guests.h.
#include "tests/guest/guests.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Picture
{
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;

    uint32_t at(int x, int y) const
    {
        const uint8_t *p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
        return uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
    }
    bool is(guest_size size) const { return width == size.width && height == size.height; }
};

// One emulated machine, spoken to with QMP over its standard streams.
class Machine
{
public:
    explicit Machine(const std::string &guest)
    {
        m_directory = std::filesystem::temp_directory_path() / "guest-XXXXXX";
        std::string name = m_directory.string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        m_directory = name;
        int in[2];
        int out[2];
        EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        const std::string drive =
            std::string("file=" TARV_GUEST_DIR "/") + guest + ".img,format=raw,snapshot=on";
        const char *arguments[] = {"qemu-system-x86_64",
                                   "-accel",
                                   "tcg,tb-size=64",
                                   "-display",
                                   "none",
                                   "-vga",
                                   "std",
                                   "-nodefaults",
                                   "-qmp",
                                   "stdio",
                                   "-drive",
                                   drive.c_str(),
                                   nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        EXPECT_EQ(posix_spawnp(&m_pid, arguments[0], &actions, nullptr,
                               const_cast<char **>(arguments), environ),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        m_in = fdopen(in[1], "w");
        m_out = fdopen(out[0], "r");
        command(R"({"execute":"qmp_capabilities"})");
    }
    ~Machine()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        fclose(m_in);
        fclose(m_out);
        std::filesystem::remove_all(m_directory);
    }

    void command(const std::string &json)
    {
        std::fprintf(m_in, "%s\n", json.c_str());
        std::fflush(m_in);
        char line[4096];
        while (std::fgets(line, sizeof line, m_out) != nullptr) {
            if (std::string(line).find("\"return\"") != std::string::npos)
                return;
            EXPECT_EQ(std::string(line).find("\"error\""), std::string::npos) << line;
        }
    }
    void key(const std::string &qcode)
    {
        command(R"({"execute":"send-key","arguments":{"hold-time":1,"keys":[)"
                R"({"type":"qcode","data":")" +
                qcode + R"("}]}})");
    }
    Picture picture()
    {
        const std::string file = (m_directory / "picture").string();
        command(R"({"execute":"screendump","arguments":{"filename":")" + file + R"("}})");
        Picture picture;
        std::FILE *stream = std::fopen(file.c_str(), "r");
        if (stream == nullptr ||
            std::fscanf(stream, "P6 %d %d 255%*c", &picture.width, &picture.height) != 2)
            ADD_FAILURE() << "no picture in " << file;
        picture.rgb.resize(size_t(picture.width) * size_t(picture.height) * 3);
        EXPECT_EQ(std::fread(picture.rgb.data(), 1, picture.rgb.size(), stream),
                  picture.rgb.size());
        std::fclose(stream);
        return picture;
    }
    // Takes pictures until one satisfies the condition.
    bool shows(const std::function<bool(const Picture &)> &condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline) {
            if (condition(picture()))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

private:
    std::filesystem::path m_directory;
    pid_t m_pid = -1;
    std::FILE *m_in = nullptr;
    std::FILE *m_out = nullptr;
};

bool barsWithBlocks(const Picture &picture, guest_size size, const std::vector<uint8_t> &codes)
{
    if (!picture.is(size))
        return false;
    for (int x = 0; x < size.width; x++)
        if (picture.at(x, 0) != guest_bar_colour(size.width, x))
            return false;
    for (size_t i = 0; i < codes.size(); i++) {
        const int count = int(i);
        const int x = guest_block_x(size, count);
        const int y = guest_block_y(size, count);
        const uint32_t colour = guest_block_colour(codes[i], count);
        if (picture.at(x, y) != colour || picture.at(x + 31, y + 31) != colour)
            return false;
    }
    const int next = int(codes.size());
    const int x = guest_block_x(size, next);
    return picture.at(x, guest_block_y(size, next)) == guest_bar_colour(size.width, x);
}

TEST(Guests, barsRecordEveryKeyboardByteAndChangeTheMode)
{
    Machine machine("bars");
    ASSERT_TRUE(
        machine.shows([](const Picture &p) { return barsWithBlocks(p, GUEST_BARS_SIZE, {}); }));
    machine.key("a");
    machine.key("up");
    ASSERT_TRUE(machine.shows([](const Picture &p) {
        return barsWithBlocks(p, GUEST_BARS_SIZE, {0x1e, 0x9e, 0xe0, 0x48, 0xe0, 0xc8});
    }));
    machine.key("f4");
    EXPECT_TRUE(
        machine.shows([](const Picture &p) { return barsWithBlocks(p, GUEST_MODES[3], {0xbe}); }));
}

int frameNumber(const Picture &picture)
{
    int number = 0;
    for (int bit = 0; bit < GUEST_COUNTER_BITS; bit++)
        number |= (picture.at(bit * GUEST_COUNTER_STEP + 8, 8) & 1) << bit;
    return number;
}

TEST(Guests, repaintCountsItsFramesInPixels)
{
    for (const char *guest : {"repaint20", "repaint40"}) {
        Machine machine(guest);
        ASSERT_TRUE(machine.shows([](const Picture &p) {
            return p.is(GUEST_REPAINT_SIZE) && frameNumber(p) > 3;
        })) << guest;
        const int number = frameNumber(machine.picture());
        EXPECT_TRUE(machine.shows([&](const Picture &p) { return frameNumber(p) > number + 3; }));
    }
}

TEST(Guests, textFillsTheTextMode)
{
    Machine machine("text");
    EXPECT_TRUE(machine.shows([](const Picture &p) {
        if (!p.is(GUEST_TEXT_SIZE))
            return false;
        for (int row = 0; row < GUEST_TEXT_ROWS; row++)
            if (p.at(719, row * GUEST_TEXT_ROW_HEIGHT + 8) != GUEST_TEXT_BACKGROUNDS[row % 8])
                return false;
        return true;
    }));
}

} // namespace
