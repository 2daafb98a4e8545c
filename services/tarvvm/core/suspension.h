// Saves the running machine so that the next start goes on where it was.
//
// The order is what makes it safe; each step is done and on the disk before the next one begins:
//
//   1. QEMU halts the machine and writes its state into a file without a name of its own
//   2. the file's bytes, then its name in the image library, then that directory
//   3. the name in the VM's record
//   4. only then is the engine told to quit, and whoever asked is answered
//
// A kill before 3 leaves a file that no record names (swept by the next supervisor) and a VM that
// boots afresh, as after any power loss. A kill after 3 leaves a suspended VM. A failure before 3
// lets the machine go on, since its disks are as it left them.
#pragma once

#include "services/failure.h"
#include "services/loop/worker.h"
#include "services/tarvvm/core/record.h"
#include "services/tarvvm/machine/migration.h"
#include "services/tarvvm/machine/state_files.h"

#include <functional>
#include <memory>
#include <string>

class Suspension
{
public:
    using Done = std::function<void(const ServiceFailure &failure)>;

    // `directory` is the image library, `avoided` the name of the state that the run began with.
    Suspension(Migration &migration, Worker &worker, std::shared_ptr<VmRecord> record,
               std::string directory, std::string avoided);
    ~Suspension(); // drops a file that was not finished
    Suspension(const Suspension &) = delete;
    Suspension &operator=(const Suspension &) = delete;

    // After a failure the machine is still halted and the record is as it was.
    void begin(Done done);
    // Gives up writing, as the engine is about to be ended. What has been written whole by then is
    // on its way to the disk and comes to its own end.
    void cancel();
    // The state is being put on the disk, or what there is of it removed: the engine is not needed.
    bool isRecording() const { return m_recording; }
    // Percent; none while nothing is being suspended. What is left after 99 is the disk's.
    std::optional<int64_t> progress() const;
    // The record names the state.
    bool isRecorded() const { return m_recorded; }
    // The state's name in the image library.
    const std::string &name() const { return m_name; }

private:
    void publish();
    void record();
    void finish(const ServiceFailure &failure);
    void tell(const ServiceFailure &failure);
    void drop();

    Migration &m_migration;
    Worker &m_worker;
    std::shared_ptr<VmRecord> m_record;
    std::string m_directory, m_avoided;
    std::string m_name;
    std::shared_ptr<StateDraft> m_draft; // while QEMU writes it
    bool m_recording = false;
    bool m_recorded = false;
    Done m_done;
};
