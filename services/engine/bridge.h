// Whether QEMU's helper can connect a VM to a bridge of this machine.
#pragma once

#include <string>

struct EngineHost;

// False with a message that names what is missing and the command that mends it: the helper, its
// rights, the bridge, or the permission in the helper's configuration.
bool engine_bridge_check(const EngineHost &host, const std::string &bridge, std::string *error);
