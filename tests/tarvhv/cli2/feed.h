// Requests that arrive in pieces, for tests and the fuzz target.
#pragma once

#include "policy/json.h"
#include "tarvhv/cli2.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

struct RequestOutcome
{
    int result = 0;
    int error = 0;
    size_t used = 0;
    std::string command, value; // the value as it is printed; "null" when there is none

    bool operator==(const RequestOutcome &) const = default;
};

// Feeds `step` bytes at a time until the request has ended or the bytes have.
inline RequestOutcome feed_request(const std::string &bytes, size_t step,
                                   bool (*wants_json)(const char *command))
{
    const std::unique_ptr<cli2_request, decltype(&cli2_request_free)> request(cli2_request_new(),
                                                                              cli2_request_free);
    RequestOutcome outcome;
    while (outcome.result == 0 && outcome.used < bytes.size()) {
        size_t used = 0;
        outcome.result =
            cli2_request_feed(request.get(), bytes.data() + outcome.used,
                              std::min(step, bytes.size() - outcome.used), &used, wants_json);
        outcome.error = outcome.result < 0 ? errno : 0;
        outcome.used += used;
    }
    outcome.command = cli2_request_command(request.get());
    outcome.value = json_print(cli2_request_json(request.get()));
    return outcome;
}
