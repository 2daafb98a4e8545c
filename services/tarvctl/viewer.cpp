#include "services/tarvctl/viewer.h"

#include "platform/child.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/service.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace {

// The text with all but letters, digits and the given bytes percent-encoded.
std::string percent_encoded(std::string_view text, std::string_view kept)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char byte : text) {
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || kept.find(byte) != kept.npos;
        const auto value = static_cast<unsigned char>(byte);
        if (plain)
            result += byte;
        else
            result += {'%', digits[value >> 4], digits[value & 15]};
    }
    return result;
}

// Its standard descriptors are /dev/null: whoever reads the controller's output must see it end.
ChildLaunch launch_of(const std::string &program, const std::string &url)
{
    return {.program = program,
            .arguments = {program, url},
            .environment = vlaunchd_environment(),
            .signals = ChildSignals::standard,
            .new_session = true};
}

} // namespace

std::string viewer_url(const std::string &id, int display)
{
    return "tarv://" + percent_encoded(place_vm_socket(id), "/.-_") +
           "?vmid=" + percent_encoded(id, ".-_") + "&d=" + std::to_string(display);
}

std::string open_viewer(const std::string &id)
{
    const char *program = getenv("TARV_TARV_VIEWER");
    if (!program || !*program)
        return "TARV_TARV_VIEWER is not set: the screen is not shown";
    Child viewer;
    if (viewer.start(launch_of(program, viewer_url(id, 0))) != 0)
        throw system_failure("TARV_TARV_VIEWER: " + std::string(program), errno);
    viewer.release(); // it outlives this command
    return "";
}
