// The machine types of QEMU. "q35" is another machine with each version of QEMU, and neither a
// saved state nor a guest that was set up for its hardware outlives that: a VM keeps the versioned
// type that it was made with.
#pragma once

#include "services/failure.h"

#include <string>
#include <vector>

// Whether a text can be the name of one: letters, digits, ".", "-" and "_".
bool machine_type_is_name(const std::string &text);
// The versioned types of q35 in what "-machine help" prints, the newest first.
std::vector<std::string> machine_types_in(const std::string &help);
// Those that a QEMU offers. It is asked, which takes some 50 ms; one that says nothing for 10 s, or
// offers none, is a failure.
ServiceFailure machine_types_of(const std::string &qemu, std::vector<std::string> *types);
