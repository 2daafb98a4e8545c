#include "tarvhv/cli2.h"

#include "policy/json.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

using Request = std::unique_ptr<cli2_request, decltype(&cli2_request_free)>;

bool wants_json(const char *command)
{
    return std::string_view(command) == "start";
}

struct Outcome
{
    int result = 0;
    int error = 0;
    size_t used = 0;
    std::string command;
    int kind = JSON_NULL;
};

Outcome feed(const std::string &bytes, size_t step)
{
    const Request request(cli2_request_new(), cli2_request_free);
    Outcome outcome;
    while (outcome.result == 0 && outcome.used < bytes.size()) {
        size_t used = 0;
        outcome.result =
            cli2_request_feed(request.get(), bytes.data() + outcome.used,
                              std::min(step, bytes.size() - outcome.used), &used, wants_json);
        outcome.error = outcome.result < 0 ? errno : 0;
        outcome.used += used;
    }
    outcome.command = cli2_request_command(request.get());
    outcome.kind = json_kind(cli2_request_json(request.get()));
    return outcome;
}

std::string nested(unsigned levels)
{
    std::string text = "{\"a\":";
    for (unsigned i = 1; i < levels; ++i)
        text += '[';
    return text + "1" + std::string(levels - 1, ']') + "}";
}

} // namespace

TEST(Request, endsByItsOwnSyntaxHoweverItArrives)
{
    const struct
    {
        std::string bytes, rest;
        int kind;
    } cases[] = {
        {"status\r\n", "", JSON_NULL},
        {"status\r\n", "status\r\n", JSON_NULL},
        {"start\r\n\"com.a \\\" \\\\\"", "\r\n", JSON_STRING},
        {"start\r\n \r\n{\"a\":\"}\\\"\",\"b\":[{},{\"c\":\"]\"}]}", "{", JSON_OBJECT},
        {"start\r\n" + nested(CLI2_DEPTH_MAX), "x", JSON_OBJECT},
    };
    for (const auto &each : cases) {
        for (const size_t step : {size_t(1), size_t(3), each.bytes.size() + 8}) {
            SCOPED_TRACE(each.bytes + " by " + std::to_string(step));
            const Outcome outcome = feed(each.bytes + each.rest, step);
            EXPECT_EQ(outcome.result, 1);
            EXPECT_EQ(outcome.used, each.bytes.size());
            EXPECT_EQ(outcome.command, each.bytes.substr(0, each.bytes.find('\r')));
            EXPECT_EQ(outcome.kind, each.kind);
        }
    }
}

TEST(Request, refusesWhatIsNone)
{
    const struct
    {
        std::string bytes;
        int error;
    } cases[] = {
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
    for (const auto &each : cases) {
        for (const size_t step : {size_t(1), size_t(4096)}) {
            const Outcome outcome = feed(each.bytes, step);
            EXPECT_EQ(outcome.result, -1) << each.bytes.substr(0, 30);
            EXPECT_EQ(outcome.error, each.error) << each.bytes.substr(0, 30);
        }
    }
}
