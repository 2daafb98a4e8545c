#include "platform/host.h"

#include "platform/owners.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <net/route.h>
#include <sys/utsname.h>

namespace {

struct Route
{
    char interface[IFNAMSIZ];
    unsigned metric;
};

// Takes a line of the kernel's route table when it is a usable default route.
bool parse_default_route(const char *line, Route &route)
{
    unsigned destination, flags, mask;
    if (std::sscanf(line, "%15s %x %*x %x %*d %*d %u %x", route.interface, &destination, &flags,
                    &route.metric, &mask) != 5)
        return false;
    return destination == 0 && mask == 0 && (flags & RTF_UP) != 0 && (flags & RTF_REJECT) == 0;
}

} // namespace

int platform_host_is_arm64()
{
    if (const char *answer = std::getenv("TARV_HOST_ARM64"); answer != nullptr && *answer != '\0')
        return std::strcmp(answer, "0") != 0;
    struct utsname host;
    if (uname(&host) != 0)
        return -1;
    return std::strcmp(host.machine, "aarch64") == 0 || std::strcmp(host.machine, "arm64") == 0;
}

const char *platform_build_name()
{
#if defined(__aarch64__)
    return "arm64";
#else
    return "intel";
#endif
}

const char *platform_primary_interface()
{
    static thread_local Route best;
    const FileOwner table(std::fopen("/proc/net/route", "re"));
    if (!table) {
        errno = EFAULT;
        return nullptr;
    }
    best = {"", UINT_MAX};
    char line[512];
    while (std::fgets(line, sizeof line, table.get()) != nullptr) {
        Route route;
        // Of several default routes the kernel uses the one with the lowest metric.
        if (parse_default_route(line, route) &&
            (*best.interface == '\0' || route.metric < best.metric))
            best = route;
    }
    if (*best.interface != '\0')
        return best.interface;
    errno = ENOPROTOOPT;
    return nullptr;
}

in_addr_t platform_interface_address(const char *interface)
{
    struct ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0) {
        errno = EFAULT;
        return INADDR_NONE;
    }
    const std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs *)> owner(all, freeifaddrs);
    bool known = false;
    for (const struct ifaddrs *entry = all; entry != nullptr; entry = entry->ifa_next) {
        if (std::strcmp(entry->ifa_name, interface) != 0)
            continue;
        known = true;
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        struct sockaddr_in address;
        std::memcpy(&address, entry->ifa_addr, sizeof address);
        return address.sin_addr.s_addr;
    }
    errno = known ? ENOPROTOOPT : EFAULT;
    return INADDR_NONE;
}
