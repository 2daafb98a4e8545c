// The words for what a VM is doing, and which of them holds where several could.
//
// Two kinds of words travel on the wire. The *status* of a VM is what the list, `tarvctl list` and
// the model show. The *state* is a running supervisor's own word for where it stands; the status of
// such a VM is "running" all the same.
#pragma once

#include <optional>
#include <string_view>

enum class VmStatus
{
    running,     // its supervisor answers
    malfunction, // its supervisor is there, and does not answer, or not well
    failed,      // it does not run, and its last run ended badly
    suspended,   // it does not run, and has a saved state
    stopped,     // it does not run
    unknown      // it does not run, and nobody can say how its last run ended
};

const char *vm_status_word(VmStatus status);
// None for a text that is no status.
std::optional<VmStatus> vm_status_from(std::string_view word);

// What is known of a VM, from whoever could be asked.
struct VmEvidence
{
    enum class Supervisor
    {
        absent,
        answers,
        silent // or answers with an error
    };
    enum class LastRun
    {
        clean,
        failed,
        unknown // the launch service can't be asked
    };
    Supervisor supervisor = Supervisor::absent;
    LastRun last_run = LastRun::clean;
    bool saved_state = false;
};

// The precedence: who answers counts before how it ended, that before what is saved, and that
// before what is not known.
VmStatus vm_status_of(const VmEvidence &evidence);

// The states that more than one program has to know by name: such a supervisor's VM does not run
// yet, or not for long.
inline constexpr const char *VM_STATE_STARTING = "starting";
inline constexpr const char *VM_STATE_STOPPING = "stopping";
// Said of a supervisor that can't say it: it runs, and nobody serves its socket.
inline constexpr const char *VM_STATE_UNREACHABLE = "unreachable";
