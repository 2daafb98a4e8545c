#include "tests/tarvhv/cli2/feed.h"

#include <gtest/gtest.h>

namespace {

bool wants_json(const char *command)
{
    return std::string_view(command) == "start";
}

std::string nested(unsigned levels)
{
    return "{\"a\":" + std::string(levels - 1, '[') + "1" + std::string(levels - 1, ']') + "}";
}

} // namespace

TEST(Request, endsByItsOwnSyntaxHoweverItArrives)
{
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"status\r\n", "", "null"},
        {"status\r\n", "status\r\n", "null"},
        {"start\r\n\"com.a \\\" \\\\\"", "\r\n", R"("com.a \" \\")"},
        {"start\r\n \r\n{\"a\":\"}\\\"\",\"b\":[{},{\"c\":\"]\"}]}", "{",
         R"({"a":"}\"","b":[{},{"c":"]"}]})"},
        {"start\r\n" + nested(CLI2_DEPTH_MAX), "x", nested(CLI2_DEPTH_MAX)},
    };
    for (const auto &[bytes, rest, value] : cases) {
        for (const size_t step : {size_t(1), size_t(3), bytes.size() + 8}) {
            SCOPED_TRACE(bytes + " by " + std::to_string(step));
            const RequestOutcome outcome = feed_request(bytes + rest, step, wants_json);
            EXPECT_EQ(outcome.result, 1);
            EXPECT_EQ(outcome.used, bytes.size());
            EXPECT_EQ(outcome.command, bytes.substr(0, bytes.find('\r')));
            EXPECT_EQ(outcome.value, value);
        }
    }
}

TEST(Request, refusesWhatIsNone)
{
    const std::pair<std::string, int> cases[] = {
        {"\r\n", EPROTO},
        {"GET / HTTP/1.1\r\n", EPROTO},
        {std::string("\0\0\0\0", 4), EPROTO},
        {"status\n", EPROTO},
        {"status\rx", EPROTO},
        {std::string(65, 'a'), EMSGSIZE},
        {"start\r\n12\r\n", EPROTO},
        {"start\r\n{]", EPROTO},
        {"start\r\n{\"a\":}", EPROTO},
        {"start\r\n" + nested(CLI2_DEPTH_MAX + 1), EMSGSIZE},
        {"start\r\n\"" + std::string(CLI2_MESSAGE_MAX, 'x'), EMSGSIZE},
        {"start\r\n" + std::string(CLI2_MESSAGE_MAX + 1, ' '), EMSGSIZE},
    };
    for (const auto &[bytes, error] : cases) {
        for (const size_t step : {size_t(1), size_t(4096)}) {
            const RequestOutcome outcome = feed_request(bytes, step, wants_json);
            EXPECT_EQ(outcome.result, -1) << bytes.substr(0, 30);
            EXPECT_EQ(outcome.error, error) << bytes.substr(0, 30);
        }
    }
}
