// Whether QEMU's helper can connect a VM to a bridge of this machine.
#pragma once

#include "services/failure.h"

#include <string>

struct EngineHost;

// A failure names what is missing, and behind "; " the command that mends it: the helper, its
// rights, the bridge, or the permission in the helper's configuration.
ServiceFailure engine_bridge_check(const EngineHost &host, const std::string &bridge);
