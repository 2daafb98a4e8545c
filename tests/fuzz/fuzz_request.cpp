// Feeds a request whole and in pieces; both must end alike.
#include "tests/tarvhv/cli2/feed.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {
bool wants_json(const char *command)
{
    return std::string_view(command) != "status";
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const RequestOutcome whole = feed_request(bytes, size, wants_json);
    // "status" takes a value only when it comes in the same bytes.
    if (whole.command != "status" && feed_request(bytes, data[0] % 7 + 1, wants_json) != whole)
        abort();
    return 0;
}
