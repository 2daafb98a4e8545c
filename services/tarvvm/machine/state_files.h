// The files of saved states in the image library. All of these may block: they are a worker's.
//
// A state is named "<id>-<seconds since the epoch>.state". While it is written it has the temporary
// name ".<id>.state-XXXXXX", which nothing names: a supervisor that is killed over it leaves a file
// that the next one sweeps.
#pragma once

#include "platform/unique_fd.h"
#include "services/failure.h"

#include <string>
#include <vector>

// A state that is being written: the open file and its path. No descriptor in a failure.
struct StateDraft
{
    UniqueFd file;
    std::string path;
    ServiceFailure failure;
};
StateDraft state_begin(const std::string &directory, const std::string &id);

// Gives a written state a name of its own: the bytes are on the disk before the name is, and the
// name is when this returns. A draft that fails is removed.
ServiceFailure state_publish(const StateDraft &draft, const std::string &directory,
                             const std::string &name);
// The name for a state of this VM that is saved now: no file has it, and it is not `avoided`, the
// name of the state that this run began with. That one may still be waiting for its removal.
std::string state_name_now(const std::string &directory, const std::string &id,
                           const std::string &avoided);

// The states of a VM that are there, whether or not anything names them.
std::vector<std::string> state_names(const std::string &directory, const std::string &id);
// Removes what an earlier supervisor of this VM was killed over.
void state_sweep_drafts(const std::string &directory, const std::string &id);
