// The VM that is supervised, as its record and the settings describe it.
#pragma once

#include "services/engine/host.h"
#include "services/engine/machine.h"
#include "services/failure.h"

#include <memory>
#include <string>

struct vm;
struct vmlib;

// What a start needs of the record and of the host. `status` is the exit status that stands for
// the failure.
struct VmPreparation
{
    Machine machine;
    EngineHost host;
    bool state_used = false; // a guest has gone on from the saved state that the record names
    ServiceFailure failure;
    int status = 0;
};

// The record is guarded by file locks that any program of the user may hold for as long as it
// likes, so all but find() and id() may block: they are called from one worker, never from the
// loop.
class VmRecord
{
public:
    VmRecord();
    ~VmRecord();
    VmRecord(const VmRecord &) = delete;
    VmRecord &operator=(const VmRecord &) = delete;

    // Finds the VM of an identifier in the library. Takes no lock.
    ServiceFailure find(const std::string &id);
    const std::string &id() const { return m_id; }

    // Reads and checks all that a start needs, makes the firmware store, and removes what earlier
    // supervisors of the VM were killed over. The caller holds the VM's socket, so nobody else is
    // writing a state.
    VmPreparation prepare();
    // Names the saved state in the record.
    ServiceFailure writeState(const std::string &name);
    // Takes a saved state out of the record, then removes its file, then its mark. False when the
    // record still names it. A record that names another one keeps that.
    bool removeState(const std::string &name);
    // Marks a saved state as used, on the disk: no start reads it again.
    ServiceFailure markUsed(const std::string &name);
    ServiceFailure unmark();

private:
    void settleMachineType(struct kv *config, VmPreparation *result);
    void sweepStates(const std::string &kept);
    bool isNeeded(const std::string &state) const;
    bool names(const std::string &id, const char *tag, const std::string &state) const;

    struct Close
    {
        void operator()(vm *record) const;
        void operator()(vmlib *library) const;
    };

    std::unique_ptr<vmlib, Close> m_library;
    std::unique_ptr<vm, Close> m_vm;
    std::string m_id;
    std::string m_images_dir;
};
