#include "services/engine/bridge.h"

#include "platform/process.h"
#include "services/engine/launch.h"

#include <cerrno>
#include <fstream>
#include <sstream>

#include <net/if.h>
#include <unistd.h>

namespace {

enum class Permission
{
    allowed,
    denied,
    unknown // the configuration can't be read here, or has parts elsewhere
};

// The helper's configuration: lines "allow NAME", "deny NAME" and "include FILE", the name "all"
// standing for every bridge. It takes a bridge that is allowed and not denied.
Permission permission(const std::string &path, const std::string &bridge)
{
    if (access(path.c_str(), R_OK) != 0)
        return errno == ENOENT ? Permission::denied : Permission::unknown;
    constexpr int lines_max = 1000;
    std::ifstream file(path);
    std::string line;
    bool allowed = false, denied = false;
    for (int count = 0; count < lines_max && std::getline(file, line); ++count) {
        std::istringstream words(line);
        std::string verb, name;
        words >> verb >> name;
        if (verb == "include")
            return Permission::unknown;
        const bool meant = name == bridge || name == "all";
        allowed = allowed || (verb == "allow" && meant);
        denied = denied || (verb == "deny" && meant);
    }
    return allowed && !denied ? Permission::allowed : Permission::denied;
}

} // namespace

ServiceFailure engine_bridge_check(const EngineHost &host, const std::string &bridge)
{
    const std::string &helper = host.bridge_helper;
    const std::string what = "network mode bridge: ";
    if (access(helper.c_str(), X_OK) != 0) {
        ServiceFailure failure = ServiceFailure::of(what + "QEMU's helper " + helper);
        failure.text += "; apt install qemu-system-common";
        return failure;
    }
    if (geteuid() != 0 && !platform_program_has_rights(helper.c_str()))
        return {0, what + "QEMU's helper " + helper +
                       " has no right to change networks; as root: chmod u+s " + helper};
    if (if_nametoindex(bridge.c_str()) == 0)
        return {ENODEV, what + "this machine has no bridge \"" + bridge +
                            "\"; as root: ip link add name " + bridge + " type bridge"};
    if (permission(host.bridge_conf, bridge) == Permission::denied)
        return {0, what + host.bridge_conf + " does not allow \"" + bridge +
                       "\"; add the line: allow " + bridge};
    return {};
}
