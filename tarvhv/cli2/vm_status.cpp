#include "tarvhv/cli2/vm_status.h"

namespace {

constexpr struct
{
    VmStatus status;
    const char *word;
} WORDS[] = {
    {VmStatus::running, "running"}, {VmStatus::malfunction, "malfunction"},
    {VmStatus::failed, "failed"},   {VmStatus::suspended, "suspended"},
    {VmStatus::stopped, "stopped"}, {VmStatus::unknown, "unknown"},
};

} // namespace

const char *vm_status_word(VmStatus status)
{
    for (const auto &entry : WORDS)
        if (entry.status == status)
            return entry.word;
    return "";
}

std::optional<VmStatus> vm_status_from(std::string_view word)
{
    for (const auto &entry : WORDS)
        if (entry.word == word)
            return entry.status;
    return std::nullopt;
}

VmStatus vm_status_of(const VmEvidence &evidence)
{
    using Supervisor = VmEvidence::Supervisor;
    using LastRun = VmEvidence::LastRun;
    if (evidence.supervisor != Supervisor::absent)
        return evidence.supervisor == Supervisor::answers ? VmStatus::running
                                                          : VmStatus::malfunction;
    if (evidence.last_run == LastRun::failed)
        return VmStatus::failed;
    if (evidence.saved_state)
        return VmStatus::suspended;
    return evidence.last_run == LastRun::clean ? VmStatus::stopped : VmStatus::unknown;
}
