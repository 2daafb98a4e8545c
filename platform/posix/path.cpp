#include "platform/host.h"

#include <cstdlib>
#include <string>

namespace {

struct Place
{
    const char *standard;
    const char *variable; // moves it, or null
};

constexpr Place PLACES[] = {
    {"/usr/sbin/pkgutil", nullptr},
    {"/var/run/vlaunchd", nullptr},
    {"/Library/Application Support/Quelda/Tarv", "TARV_SUPPORT_DIR"},
};

std::string &replacement(PlatformPath which)
{
    static auto *paths = new std::string[std::size(PLACES)];
    return paths[size_t(which)];
}

} // namespace

const char *platform_path(PlatformPath which)
{
    if (const std::string &path = replacement(which); !path.empty())
        return path.c_str();
    const Place &place = PLACES[size_t(which)];
    const char *moved = place.variable != nullptr ? std::getenv(place.variable) : nullptr;
    return moved != nullptr && *moved != '\0' ? moved : place.standard;
}

void platform_set_path(PlatformPath which, const char *path)
{
    replacement(which) = path != nullptr ? path : "";
}
