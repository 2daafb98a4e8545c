#include "hostlib/utils/utils.h"

#include "tests/support/scratch.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <sched.h>

namespace {

TEST(vercmp, compares_part_by_part)
{
    const std::tuple<const char *, const char *, int> rows[] = {
        {"10.15", "10.15.0", 0}, {"10.15b", "10.15", 0}, {"10.9", "10.15", -1},
        {"11", "10.15", 1},      {nullptr, "1", -1},     {nullptr, nullptr, 0},
        {"", "0.0", 0},          {"1..2", "1.0.2", 0},   {"10.15 2", "10.15.2", -1},
    };
    for (const auto &[a, b, sign] : rows) {
        const int result = vercmp(a, b);
        EXPECT_EQ((result > 0) - (result < 0), sign) << a << " " << b;
    }
    EXPECT_EQ(vercmp("12.7", "12.1"), 6);
}

TEST(atover, packs_what_is_in_the_slice)
{
    const auto packed = [](const char *text) { return atover(text, std::strlen(text)); };
    EXPECT_EQ(packed(" 1.2.3.4 rest"), 0x0001000200030004u);
    EXPECT_EQ(packed("v1.2"), 0u);
    // A part that is too wide runs over into the next.
    EXPECT_EQ(packed("1.65537"), 0x0002000100000000u);
    EXPECT_EQ(atover("12.34", 2), uint64_t(12) << 48);
    EXPECT_EQ(vertoa(1), nullptr);
}

TEST(snscanf, stops_at_the_length_and_at_a_zero)
{
    int a = 0, b = 0;
    EXPECT_EQ(snscanf("12 345", 5, "%d %d", &a, &b), 2);
    EXPECT_EQ(a, 12);
    EXPECT_EQ(b, 34);
    EXPECT_EQ(snscanf("7\0 8", 4, "%d %d", &a, &b), 1);
    EXPECT_EQ(snscanf("", 0, "%d", &a), EOF);
}

TEST(inet_prim_addr, fails_without_a_network)
{
    const int status = wait_child(run_child([] {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            return 77;
        return inet_prim_addr() == INADDR_NONE && errno == ENOPROTOOPT ? 0 : 1;
    }));
    if (status == 77)
        GTEST_SKIP() << "no new network namespace is to be had here";
    EXPECT_EQ(status, 0);
}

} // namespace
