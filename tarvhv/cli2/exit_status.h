// Exit statuses of the controller that other programs act on; docs/formats.md lists all of them.
#pragma once

// A plain stop was asked for, and the guest did not power off in time. The VM runs on: only a stop
// by force ends it then.
inline constexpr int EXIT_GUEST_STAYS_ON = 10;
