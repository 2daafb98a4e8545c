// The keys that are down on the host's keyboard.
#pragma once

namespace HostKeys {

// Whether any of the 256 keys of the session's keyboard is down, whichever program it goes to. Only
// X11 tells; elsewhere it is the modifiers that count, as far as this program knows of them.
bool isAnyPressed();

} // namespace HostKeys
