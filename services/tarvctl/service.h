// Requests to the launch service and to the supervisors of running VMs.
#pragma once

#include "services/tarvctl/answer.h"
#include "tarvhv/cli2/vm_status.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Makes sure that the launch service listens; fails with ExitStatus::service.
void service_ensure();
// Asks the launch service. The answer, whatever its "status"; fails with ExitStatus::service when
// there is none. A null value sends none.
Json service_request(const std::string &command, const Json &value, std::chrono::seconds patience);
// Asks a VM's supervisor. None when nobody serves the VM's socket, or it went away without an
// answer; fails with ExitStatus::service when it stays silent.
std::optional<Json> vm_request(const std::string &id, const std::string &command, const Json &value,
                               std::chrono::seconds patience);

class Exchange;
// The answer of an exchange that is done; "discarded" where it is none.
Json answer_of(const Exchange &exchange);

// That whoever serves a VM's socket stays silent, and what to do about it.
std::string vm_silent_message(const std::string &label, const std::string &id);

// That a VM runs whose socket is gone.
std::string vm_unreachable_message(const std::string &label, const std::string &id);

// The text of an error answer.
std::string answer_message(const Json &answer);
bool answer_ok(const Json &answer);
// What its error is for whoever reads exit statuses.
ExitStatus answer_exit_status(const Json &answer);

// What is known of one VM's process.
// NOLINTNEXTLINE(bugprone-exception-escape): Json moves without exceptions; the check looks inside.
struct VmState
{
    VmStatus status = VmStatus::unknown;
    std::string state = {}; // a running one's own word
    Json details = nullptr; // what its supervisor reports
    bool serves = false;    // somebody holds its socket
    pid_t job = 0;          // the launch service's process for it
    // Whoever has lost its socket runs all the same.
    bool runs() const { return serves || job > 0; }
};

// The states of many VMs, asked of all supervisors at the same time: silent ones cost `patience`
// once. `suspended` says of an identifier whether it has a saved state. Where the launch service
// can't be had, how a VM ended that does not run is unknown.
std::map<std::string, VmState> query_states(const std::map<std::string, bool> &suspended,
                                            std::chrono::milliseconds patience);
// The state of one.
VmState query_state(const std::string &id, bool suspended);
