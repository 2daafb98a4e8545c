#include "services/tarvvm/core/record.h"

#include "hostlib/vm/img.h"
#include "hostlib/vm/owners.h"
#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "services/engine/trees.h"
#include "services/tarvvm/machine/suspender.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Asked of queued images: what is still there is not this program's to remove.
bool image_exists(const char *name, void *)
{
    struct stat status;
    return fstatat(img_libfd(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT;
}

} // namespace

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

bool VmRecord::removeState()
{
    vm_remove_state(m_vm.get());
    const KvTree left(vm_read_state(m_vm.get()));
    if (left)
        return false;
    // A clone's state has another name than those that are swept.
    const std::string dropped = std::exchange(m_machine.state_file, {});
    if (dropped.find('/') == std::string::npos && !isNeeded(dropped))
        unlinkat(img_libfd(), dropped.c_str(), 0);
    sweepStates();
    return true;
}

// A configuration that can't be read may be one that names it.
bool VmRecord::names(const std::string &id, const char *tag, const std::string &state) const
{
    errno = 0;
    const std::unique_ptr<vm, Close> version(vmlib_get(m_library.get(), id.c_str(), tag));
    const KvTree config(version ? vm_read_config(version.get()) : nullptr);
    return config ? state == kv_get_str(config.get(), "state_file", "") : errno != ENOENT;
}

// Another VM's record may name it as well: one that was copied by hand.
bool VmRecord::isNeeded(const std::string &state) const
{
    vmlib *library = m_library.get();
    std::vector<std::string> ids;
    vmlib_reset(library);
    while (const char *id = vmlib_next(library))
        ids.emplace_back(id);
    for (const std::string &id : ids) {
        std::vector<std::string> tags;
        for (const char *tag = vmlib_tag_first(library, id.c_str()); tag;
             tag = vmlib_tag_next(library, id.c_str()))
            tags.emplace_back(tag);
        if (names(id, nullptr, state) ||
            std::any_of(tags.begin(), tags.end(),
                        [&](const std::string &tag) { return names(id, tag.c_str(), state); }))
            return true;
    }
    return false;
}

void VmRecord::sweepStates()
{
    for (const std::string &name : state_names(m_host.images_dir, m_id))
        if (name != m_machine.state_file && !isNeeded(name))
            unlinkat(img_libfd(), name.c_str(), 0);
    // Whose removal was queued and is done now is forgotten; the rest waits for the controller.
    img_purge(image_exists, nullptr);
}
