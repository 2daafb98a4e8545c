#include "policy/json.h"

#include "policy/owners.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {
JsonOwner parse(const std::string &text)
{
    return JsonOwner(json_parse(text.data(), text.size()));
}

TEST(Json, answersMembersAtDottedPathsAndDefaultsElsewhere)
{
    const JsonOwner tree =
        parse(R"({"status":"OK","body":{"status":7.9,"list":[{"a":true},"x"]}})");
    ASSERT_TRUE(tree);
    EXPECT_EQ(json_find_int64(tree.get(), "body.status", -1), 7);
    EXPECT_STREQ(json_find_str(tree.get(), "body.list[1]", ""), "x");
    EXPECT_TRUE(json_find_bool(tree.get(), "body.list[0].a", false));
    for (const char *path : {"", ".", "body.", "body..status", "body.list[2]", "body.list[x]",
                             "body.list[0", "nothing", "status.more", "body.status[0]"})
        EXPECT_STREQ(json_find_str(tree.get(), path, "default"), "default") << path;
    EXPECT_STREQ(json_find_str(nullptr, "body.status", "default"), "default");
    EXPECT_EQ(json_find_int64(nullptr, "body.status", 3), 3);
    EXPECT_EQ(json_find_int64(tree.get(), "status", 3), 3) << "a text is no number";
}

TEST(Json, holdsNumbersToTheRangeOfTheResult)
{
    const JsonOwner tree = parse("[9223372036854775808, -1e300, 18446744073709551615, -2.9]");
    EXPECT_EQ(json_find_int64(tree.get(), "[0]", 0), INT64_MAX);
    EXPECT_EQ(json_find_int64(tree.get(), "[1]", 0), INT64_MIN);
    EXPECT_EQ(json_number(json_find(tree.get(), "[2]")), 18446744073709551616.0);
    EXPECT_EQ(json_find_int64(tree.get(), "[3]", 0), -2);
}

TEST(Json, refusesMalformedText)
{
    for (const char *text : {"", " ", "{", "[1,]", "{\"a\"}", "1 2", "\"\xff\"", "nul", "1e999"}) {
        errno = 0;
        EXPECT_FALSE(parse(text)) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
}

TEST(Json, refusesMoreLevelsThanItsCap)
{
    const auto nested = [](size_t levels) {
        return std::string(levels, '[') + std::string(levels, ']');
    };
    EXPECT_TRUE(parse(nested(64)));
    EXPECT_FALSE(parse(nested(65)));
    EXPECT_EQ(errno, E2BIG);
    EXPECT_FALSE(parse(std::string(1000000, '[')));
    EXPECT_EQ(errno, E2BIG);
}

TEST(Json, printsOneLineThatReadsBack)
{
    const std::string text = R"({"b":"q\"\n\u0001é","a":[1,-0.5,true,null,{}],"big":137438953472})";
    const JsonOwner tree = parse(text);
    ASSERT_TRUE(tree);
    EXPECT_EQ(json_print(tree.get()), text);
    EXPECT_EQ(json_print(nullptr), "null");
}

} // namespace
