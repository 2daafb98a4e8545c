// The VM that is supervised, as its record and the settings describe it.
#pragma once

#include "services/engine/host.h"
#include "services/engine/machine.h"

#include <memory>
#include <string>

struct vm;
struct vmlib;

class VmRecord
{
public:
    VmRecord();
    ~VmRecord();
    VmRecord(const VmRecord &) = delete;
    VmRecord &operator=(const VmRecord &) = delete;

    // Finds the VM of an identifier in the library. False with a message.
    bool find(const std::string &id, std::string *error);
    // Reads and checks all that a start needs, and makes the firmware store. False with a message,
    // and with the exit status that stands for it.
    bool prepare(std::string *error, int *status);

    const std::string &id() const { return m_id; }
    const Machine &machine() const { return m_machine; }
    const EngineHost &host() const { return m_host; }
    // Records the saved state. False with errno set.
    bool writeState(const std::string &name);
    // Drops it with its file. False when the record still names it.
    bool removeState();
    // Removes saved states of this VM that no configuration names: what a supervisor left that was
    // killed before it recorded one, and what has been resumed.
    void sweepStates();

private:
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
    Machine m_machine;
    EngineHost m_host;
};
