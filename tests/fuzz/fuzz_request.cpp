// Feeds a request whole and in pieces; both must end alike.
#include "tarvhv/cli2.h"

#include "policy/json.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {
struct Outcome
{
    int result = 0;
    size_t used = 0;
    std::string command, value;

    bool operator==(const Outcome &) const = default;
};

bool wants_json(const char *command)
{
    return strcmp(command, "status") != 0;
}

Outcome feed(const char *bytes, size_t size, size_t step)
{
    const std::unique_ptr<cli2_request, decltype(&cli2_request_free)> request(cli2_request_new(),
                                                                              cli2_request_free);
    Outcome outcome;
    while (outcome.result == 0 && outcome.used < size) {
        size_t used = 0;
        outcome.result = cli2_request_feed(request.get(), bytes + outcome.used,
                                           std::min(step, size - outcome.used), &used, wants_json);
        outcome.used += used;
    }
    outcome.command = cli2_request_command(request.get());
    outcome.value = json_print(cli2_request_json(request.get()));
    return outcome;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const char *bytes = reinterpret_cast<const char *>(data);
    const Outcome whole = feed(bytes, size, size);
    // "status" takes a value only when it comes in the same bytes.
    if (whole.command != "status" && feed(bytes, size, data[0] % 7 + 1) != whole)
        abort();
    return 0;
}
