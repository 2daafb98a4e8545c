// The VM library as the controller sees it: identifiers or names to records, locks, and the
// configuration read with clear errors.
#pragma once

#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"
#include "services/tarvctl/answer.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// One VM by its identifier (the name of its directory) and, for messages, its name.
struct VmRef
{
    std::string id;
    std::string name; // "" when it has none or its configuration can't be read
    // "name (id)", or the identifier alone.
    std::string label() const;
};

class Library
{
public:
    // Opens the library of the settings; fails when there is none.
    Library();

    std::string directory() const { return m_path; }
    // All VMs in directory order.
    std::vector<std::string> ids();
    // The VM that an identifier (in any case) or a name stands for. Fails when there is none, or
    // when several have that name.
    VmRef resolve(const std::string &id_or_name);
    // Fails when a VM has that name, or it can't be a name at all; `except` may keep its own.
    void check_name_free(const std::string &name, const std::string &except = "");
    VmOwner open(const VmRef &ref);
    // The configuration; fails with what is wrong in which file.
    KvOwner read_config(const VmRef &ref);
    // Visits the configurations of all VMs and of their tagged versions. False when one exists that
    // can't be read.
    bool each_config(const std::function<void(const struct kv *)> &visit);
    // Removes a VM's directory; fails when it is still there.
    void remove(const VmRef &ref);
    // Holds the whole library against other controllers: for the moment of publishing a name.
    UniqueFd lock();
    // Holds one VM against other controllers' commands. Waits for up to a minute.
    UniqueFd lock(const VmRef &ref);

private:
    struct Close
    {
        void operator()(struct vmlib *lib) const { vmlib_close(lib); }
    };
    std::string m_path;
    std::unique_ptr<struct vmlib, Close> m_lib;
};

// The value of a text key, or "".
std::string config_text(const struct kv *record, const char *path);
// Fails unless the text can be a VM's name.
void check_name(const std::string &name);
