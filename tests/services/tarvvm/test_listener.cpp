// What QEMU's display sends, well-formed and otherwise.
#include "tests/services/tarvvm/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr uint32_t XRGB = 0x20020888;

std::string rows(uint32_t width, uint32_t height, size_t padding, uint32_t first)
{
    WireBytes pixels;
    for (uint32_t y = 0; y < height; y++) {
        for (uint32_t x = 0; x < width; x++)
            pixels.u32(first + y * 256 + x);
        pixels.raw(std::string(y + 1 < height ? padding : 0, '\xee'));
    }
    return pixels.bytes;
}

std::string scanout(uint32_t width, uint32_t height, uint32_t stride, uint32_t format,
                    const std::string &pixels)
{
    WireBytes body;
    body.u32(width).u32(height).u32(stride).u32(format).u32(uint32_t(pixels.size())).raw(pixels);
    return wire_listener("Scanout", "uuuuay", body.bytes);
}

std::string update(int32_t x, int32_t y, int32_t width, int32_t height, uint32_t stride,
                   const std::string &pixels)
{
    WireBytes body;
    body.u32(uint32_t(x)).u32(uint32_t(y)).u32(uint32_t(width)).u32(uint32_t(height));
    body.u32(stride).u32(XRGB).u32(uint32_t(pixels.size())).raw(pixels);
    return wire_listener("Update", "iiiiuuay", body.bytes);
}

TEST(Listener, putsPixelsWhereTheyBelong)
{
    // Whole rows in one piece, rows with gaps between them (more than fit one read), a part.
    MemoryInput input(scanout(MemoryScreen::SIDE, 3, MemoryScreen::SIDE * 4, XRGB,
                              rows(MemoryScreen::SIDE, 3, 0, 0x100000)) +
                      scanout(10, 200, 64, XRGB, rows(10, 200, 24, 0x200000)) +
                      update(300, 400, 2, 2, 8, rows(2, 2, 0, 0x300000)));
    MemoryScreen screen;
    ListenerReader reader(input, screen);
    ASSERT_TRUE(reader.readMessage());
    EXPECT_EQ(screen.at(511, 2), 0x100000u + 2 * 256 + 511);
    ASSERT_TRUE(reader.readMessage());
    for (uint32_t y = 0; y < 200; y++)
        for (uint32_t x = 0; x < 10; x++)
            ASSERT_EQ(screen.at(x, y), 0x200000 + y * 256 + x) << x << "," << y;
    EXPECT_EQ(screen.at(10, 0), 0x100000u + 10);
    EXPECT_EQ(screen.at(10, 100), 0u);
    ASSERT_TRUE(reader.readMessage());
    EXPECT_EQ(screen.at(301, 401), 0x300101u);
    EXPECT_THAT(screen.rects,
                testing::ElementsAre(ScreenRect{0, 0, 512, 3}, ScreenRect{0, 0, 10, 200},
                                     ScreenRect{300, 400, 2, 2}));
    EXPECT_FALSE(reader.readMessage());
    EXPECT_EQ(reader.error(), "") << "the end of the stream is no fault";
}

TEST(Listener, passesOverWhatIsThereAlready)
{
    constexpr uint32_t STRIDE = 16384; // many pieces
    const std::string picture = rows(10, 200, STRIDE - 40, 0x200000);
    std::string last_differs = picture, middle_differs = picture;
    last_differs[last_differs.size() - 4] ^= 1; // blue of the last pixel
    middle_differs[100 * STRIDE] ^= 1;
    MemoryInput input(scanout(10, 200, STRIDE, XRGB, picture) +
                      scanout(10, 200, STRIDE, XRGB, picture) +
                      scanout(10, 200, STRIDE, XRGB, last_differs) +
                      update(0, 0, 10, 200, STRIDE, middle_differs));
    MemoryScreen screen;
    ListenerReader reader(input, screen);
    for (int i = 0; i < 4; i++)
        ASSERT_TRUE(reader.readMessage()) << i << reader.error();
    EXPECT_THAT(screen.rects,
                testing::ElementsAre(ScreenRect{0, 0, 10, 200}, ScreenRect{0, 199, 10, 1},
                                     ScreenRect{0, 100, 10, 100}));
    EXPECT_EQ(screen.at(0, 100), 0x200000u + (100 * 256 ^ 1));
    EXPECT_EQ(screen.at(9, 199), 0x200000u + 199 * 256 + 9) << "as it was in the last picture";
}

TEST(Listener, takesThePointerAndLetsNewMessagesPass)
{
    WireBytes cursor;
    cursor.u32(1).u32(1).u32(0).u32(0).u32(4).raw("\xff\x10\x90\x80");
    MemoryInput input(wire_listener("CursorDefine", "iiiiay", cursor.bytes) +
                      wire_listener("MouseSet", "iii", WireBytes().u32(1).u32(2).u32(0).bytes) +
                      wire_listener("SomethingNew", "s", WireBytes().u32(3).raw("abc").bytes));
    MemoryScreen screen;
    ListenerReader reader(input, screen);
    for (int i = 0; i < 3; i++)
        ASSERT_TRUE(reader.readMessage()) << i << reader.error();
    ASSERT_EQ(screen.cursors.size(), 1u);
    EXPECT_THAT(screen.cursors[0].pixels, testing::ElementsAre(0x80, 0x10, 0x80, 0x80));
    EXPECT_FALSE(screen.cursor_shown);
}

TEST(Listener, refusesWhatCanNotBeRight)
{
    std::string big_endian = scanout(1, 1, 4, XRGB, rows(1, 1, 0, 0));
    std::string too_long = big_endian;
    std::string no_end = big_endian;
    big_endian[0] = 'B';
    too_long[15] = 1;  // header fields of 16 MiB
    no_end[20] = 0x7f; // the path's length runs past the header
    const std::string cases[] = {
        big_endian,
        too_long,
        no_end,
        wire_listener("Scanout", "uuuay", "0123456789abcdef"),
        wire_listener("Scanout", "uuuuay", "short"),
        scanout(0, 1, 4, XRGB, ""),
        scanout(20000, 1, 80000, XRGB, ""),
        scanout(4, 1, 12, XRGB, rows(3, 1, 0, 0)), // stride below a row
        scanout(4, 4, 16, XRGB, rows(4, 3, 0, 0)), // a row missing
        scanout(4, 1, 0xfffffff0, XRGB, rows(4, 1, 0, 0)),
        scanout(4, 1, 16, 0x12345678, rows(4, 1, 0, 0)),
        scanout(600, 1, 2400, XRGB, rows(600, 1, 0, 0)), // no memory for it
        update(-1, 0, 2, 1, 8, rows(2, 1, 0, 0)),
        update(0, 0, 0, 1, 8, ""),
        update(16383, 0, 2, 1, 8, rows(2, 1, 0, 0)),
        update(0x7fffffff, 0, 0x7fffffff, 1, 8, rows(2, 1, 0, 0)),
        wire_listener("CursorDefine", "iiiiay",
                      WireBytes().u32(70000).u32(70000).u32(0).u32(0).u32(4).u32(0).bytes),
        wire_listener("MouseSet", "iii", "1234"),
    };
    for (size_t i = 0; i < std::size(cases); i++) {
        MemoryInput input(cases[i]);
        MemoryScreen screen;
        ListenerReader reader(input, screen);
        EXPECT_FALSE(reader.readMessage()) << i;
        EXPECT_NE(reader.error(), "") << i;
        EXPECT_TRUE(screen.rects.empty()) << i;
    }
}

} // namespace
