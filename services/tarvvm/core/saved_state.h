// The saved state that a start finds in the record: read into the machine, used, dropped.
//
// A state may be run from once: the guest's disks change with its first instruction, and old memory
// above changed disks destroys them. So each step is on the disk before the next one begins:
//
//   1. the state is read into the machine, and QEMU has answered that it is whole
//   2. the state is marked as used
//   3. the guest is let run
//   4. the state's name leaves the record, then its file goes, then the mark
//
// Killed before 2, the next start resumes. Killed after 2, it finds the mark and boots afresh; it
// can't know whether the guest ran. An attempt that failed between 2 and 3 and whose guest provably
// never ran takes the mark back.
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
    // Marks it as used.
    void use(const Done &done);
    // QEMU says that the guest runs. It says so before the guest's first instruction.
    void guestRan() { m_ran = true; }
    // It is marked, or about to be, and the guest has not run. To be asked once the engine has
    // ended and all that it said was read.
    bool isUnspent() const { return m_mark_asked && !m_ran; }
    // A state from which a guest has run; the next start boots afresh.
    bool isSpent() const { return m_mark_asked; }
    // Takes the mark back.
    void takeBack(const Done &done);
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
    bool m_mark_asked = false; // the mark may be on the disk
    bool m_ran = false;
    EventSource m_retry;
};
