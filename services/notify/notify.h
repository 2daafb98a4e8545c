// Tells every program of the user's session that a VM started, stopped, was made, deleted or
// changed: signals on the session bus.
#pragma once

#include "services/failure.h"

#include <string>

inline constexpr const char *NOTIFY_PATH = "/com/quelda/tarvhv";
inline constexpr const char *NOTIFY_INTERFACE = "com.quelda.tarvhv.notification";

// Posts the signal `member` ("start", "stop", "create", "delete" or "change") with a VM identifier
// as its argument. Returns once it is handed to the bus, after 2 s at most. The failure's error:
// EINVAL (not a member name, no identifier), ENOTCONN (no session bus to be had), ETIMEDOUT. Who
// has nobody to tell drops it: windows learn of the change a little later by themselves.
ServiceFailure notify_post(const char *member, const char *id);
// Where the session bus listens: what the environment says, else the place that the login manager
// gives to every session (a program may be run with next to no environment), else "".
std::string notify_bus_address();
// Whether a bus answers there, within 2 s.
bool notify_bus_answers();
