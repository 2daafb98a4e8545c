// One action on several VMs.
#pragma once

#include "services/tarvctl/store.h"

#include <functional>
#include <string>
#include <vector>

enum class EachOrder
{
    in_turn,
    together, // up to 8 at a time; the action runs on threads of its own
};

// Resolves all identifiers and names first, failing before anything is done when one is unknown,
// then acts on each VM once. A failure of one leaves the others alone; the answer tells all, with
// the status of the first. Body: {"vms":[{"id","name","status"[,"message"]}]}.
Answer for_each_vm(const std::vector<std::string> &texts, EachOrder order,
                   const std::function<void(const VmRef &)> &action);
