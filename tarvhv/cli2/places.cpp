#include "tarvhv/cli2/places.h"

#include "platform/host.h"

#include <unistd.h>

namespace {

// Of jobs and of sockets alike: the identifier of a VM follows.
constexpr std::string_view PREFIX = "com.quelda.tarvhv.";

} // namespace

std::string place_vm_socket(std::string_view id)
{
    return "/tmp/" + place_vm_job(id) + "." + std::to_string(getuid()) + ".sock";
}

std::string place_vm_job(std::string_view id)
{
    return std::string(PREFIX).append(id);
}

std::string place_vm_of_job(std::string_view label)
{
    return std::string(label.starts_with(PREFIX) ? label.substr(PREFIX.size()) : "");
}

std::string place_launch_socket(const char *setting)
{
    return setting && *setting ? setting : platform_path(PlatformPath::vlaunchd_socket);
}
