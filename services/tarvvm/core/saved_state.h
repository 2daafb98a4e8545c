// The saved state that a start finds in the record: read into the machine, then dropped.
//
// The state is dropped once the guest runs, since its disks differ from then on from what the state
// was saved with. A start that fails before keeps it. A supervisor that is killed in between leaves
// the record naming it.
#pragma once

#include "services/failure.h"
#include "services/loop/event.h"
#include "services/loop/worker.h"
#include "services/tarvvm/core/record.h"
#include "services/tarvvm/machine/migration.h"
#include "services/tarvvm/machine/vm_log.h"

#include <functional>
#include <memory>
#include <string>

class SavedState
{
public:
    using Done = std::function<void(const ServiceFailure &failure)>;

    // `name` as the record has it; empty: there is none, and nothing is done. `directory` is the
    // image library.
    SavedState(sd_event *loop, Worker &worker, std::shared_ptr<VmRecord> record, VmLog &log,
               std::string name, std::string directory);
    SavedState(const SavedState &) = delete;
    SavedState &operator=(const SavedState &) = delete;

    const std::string &name() const { return m_name; }
    // Reads it into a machine that waits for one.
    void load(Migration &migration, Done done);
    // Takes it out of the record and removes its file; tried again until the record is free.
    void drop();
    // No more tries: the record is about to name another one.
    void forget() { m_retry.reset(); }

private:
    sd_event *m_loop;
    Worker &m_worker;
    std::shared_ptr<VmRecord> m_record;
    VmLog &m_log;
    std::string m_name, m_directory;
    EventSource m_retry;
};
