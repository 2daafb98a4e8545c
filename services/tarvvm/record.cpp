#include "services/tarvvm/record.h"

#include "hostlib/vm/img.h"
#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "services/engine/trees.h"

#include <cerrno>
#include <cstring>
#include <sysexits.h>

VmRecord::VmRecord() = default;
VmRecord::~VmRecord() = default;

void VmRecord::Close::operator()(vm *record) const
{
    vm_close(record);
}

void VmRecord::Close::operator()(vmlib *library) const
{
    vmlib_close(library);
}

bool VmRecord::find(const std::string &id, std::string *error)
{
    m_library.reset(vmlib_open(nullptr));
    if (!m_library) {
        *error = std::string("the VM library (setting vm_lib_dir): ") + std::strerror(errno);
        return false;
    }
    m_vm.reset(vmlib_get(m_library.get(), id.c_str(), nullptr));
    const char *found = m_vm ? vm_getid(m_vm.get()) : nullptr;
    if (!found) {
        *error = id + ": there is no such VM in the library";
        return false;
    }
    m_id = found;
    return true;
}

bool VmRecord::prepare(std::string *error, int *status)
{
    *status = EX_CONFIG;
    const std::string directory = vmlib_vm_dir(m_library.get(), m_id.c_str());
    const std::string file = directory + "/" + vm_config_path(m_vm.get());
    const KvTree config(vm_read_config(m_vm.get()));
    if (!config) {
        const char *reason = kv_yaml_error();
        *error = file + ": " + (*reason ? reason : std::strerror(errno));
        return false;
    }
    if (!machine_parse(config.get(), m_id.c_str(), file.c_str(), &m_machine, error))
        return false;
    *status = EX_UNAVAILABLE;
    if (!engine_host_read(directory, &m_host, error) ||
        !engine_host_check(m_machine, &m_host, error))
        return false;
    *status = EX_CANTCREAT;
    return engine_host_make_nvram(m_machine, m_host, error);
}

bool VmRecord::writeState(const std::string &name)
{
    return vm_write_state(m_vm.get(), name.c_str()) == 0;
}

void VmRecord::removeState()
{
    vm_remove_state(m_vm.get());
    // It has the size of the guest's memory, and nobody else's record names it. What else is queued
    // may be needed.
    img_purge(
        [](const char *name, void *state) { return *static_cast<std::string *>(state) != name; },
        &m_machine.state_file);
}
