#include "platform/host.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/service.h"
#include "services/vlaunchd/ondemand.h"

#include <cstdio>

#include <unistd.h>

namespace {

bool is_accepted()
{
    const std::string marker =
        std::string(platform_path(PlatformPath::support_dir)) + "/.TarvEulaAccepted";
    return access(marker.c_str(), F_OK) == 0;
}

} // namespace

Answer run_eula(const Arguments &arguments)
{
    if (arguments.word == "accept") {
        service_ensure();
        const Json answer =
            service_request("eula", {{"action", "accept"}}, std::chrono::seconds(30));
        if (!answer_ok(answer))
            throw Failure(ExitStatus::failed, "eula: " + answer_message(answer));
        // The service may have been started with another support directory than this process has.
        if (!is_accepted())
            throw Failure(ExitStatus::failed,
                          std::string("eula: the launch service wrote no marker in ") +
                              platform_path(PlatformPath::support_dir));
    }
    const bool accepted = is_accepted();
    // Whoever asks is about to accept: over the service's socket, perhaps without this program.
    if (const auto failure = accepted ? ServiceFailure() : vlaunchd_ensure())
        fprintf(stderr, "tarvctl: launch service: %s\n", failure.text.c_str());
    return {.body = {{"accepted", accepted}}, .text = accepted ? "accepted\n" : "not accepted\n"};
}

Answer run_ping(const Arguments &)
{
    service_ensure();
    return {.body = Json::object()};
}
