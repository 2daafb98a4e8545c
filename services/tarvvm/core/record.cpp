#include "services/tarvvm/core/record.h"

#include "hostlib/vm/img.h"
#include "hostlib/vm/owners.h"
#include "hostlib/vm/used_state.h"
#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "platform/file.h"
#include "platform/unique_fd.h"
#include "services/engine/machine_types.h"
#include "services/engine/trees.h"
#include "services/tarvvm/machine/state_files.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>
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

ServiceFailure VmRecord::find(const std::string &id)
{
    m_library.reset(vmlib_open(nullptr));
    if (!m_library)
        return ServiceFailure::of("the VM library (setting vm_lib_dir)");
    m_vm.reset(vmlib_get(m_library.get(), id.c_str(), nullptr));
    const char *found = m_vm ? vm_getid(m_vm.get()) : nullptr;
    if (!found)
        return {ENOENT, id + ": there is no such VM in the library"};
    m_id = found;
    return {};
}

VmPreparation VmRecord::prepare()
{
    VmPreparation result;
    const auto failed = [&](int status, ServiceFailure failure) {
        result.status = status;
        result.failure = std::move(failure);
        return std::move(result);
    };
    const std::string directory = vmlib_vm_dir(m_library.get(), m_id.c_str());
    const std::string file = directory + "/" + vm_config_path(m_vm.get());
    const KvTree config(vm_read_config(m_vm.get()));
    if (!config) {
        const char *reason = kv_yaml_error();
        return failed(EX_CONFIG,
                      *reason ? ServiceFailure{0, file + ": " + reason} : ServiceFailure::of(file));
    }
    if (auto failure = machine_parse(config.get(), m_id.c_str(), file.c_str(), &result.machine))
        return failed(EX_CONFIG, std::move(failure));
    if (auto failure = engine_host_read(directory, &result.host))
        return failed(EX_UNAVAILABLE, std::move(failure));
    if (auto failure = engine_host_check(result.machine, &result.host))
        return failed(EX_UNAVAILABLE, std::move(failure));
    settleMachineType(config.get(), &result);
    if (auto failure = engine_host_make_nvram(result.machine, result.host))
        return failed(EX_CANTCREAT, std::move(failure));
    const int used = vm_state_used(m_vm.get(), result.machine.state_file.c_str());
    if (used < 0)
        return failed(EX_UNAVAILABLE, ServiceFailure::of(directory + "/state.used"));
    result.state_used = used == 1;
    if (!result.state_used)
        vm_unmark_state(m_vm.get()); // of a state that is gone
    m_images_dir = result.host.images_dir;
    state_sweep_drafts(m_images_dir, m_id);
    sweepStates(result.machine.state_file);
    return result;
}

// A record that was made before machine types were kept gets one at its first cold start. A
// suspended VM has none to choose: its state fits the machine that made it. Where QEMU can't be
// asked, or the record not written, the VM starts all the same and is asked about again with the
// next start.
void VmRecord::settleMachineType(kv *config, VmPreparation *result)
{
    std::vector<std::string> types;
    if (!result->machine.type.empty() || !result->machine.state_file.empty() ||
        machine_types_of(result->host.qemu, &types))
        return;
    if (kv_set_type(config, "machine", types.front().c_str(), KV_STRING) == 0 &&
        vm_write_config(m_vm.get(), config) == 0)
        result->machine.type = types.front();
}

ServiceFailure VmRecord::writeState(const std::string &name)
{
    if (vm_write_state(m_vm.get(), name.c_str()) == 0)
        return {};
    ServiceFailure failure = ServiceFailure::of("the state can't be recorded");
    // The new text may stand there without being safe on the disk.
    const KvTree found(vm_read_state(m_vm.get()));
    if (found && name == kv_get_str(found.get(), "state_file", ""))
        vm_remove_state(m_vm.get());
    return failure;
}

bool VmRecord::removeState(const std::string &name)
{
    const KvTree found(vm_read_state(m_vm.get()));
    if (found && name != kv_get_str(found.get(), "state_file", ""))
        return true; // it names another one, which is not this caller's to remove
    vm_remove_state(m_vm.get());
    const KvTree left(vm_read_state(m_vm.get()));
    if (left)
        return false;
    // A clone's state has another name than those that are swept.
    if (name.find('/') == std::string::npos && !isNeeded(name))
        unlinkat(img_libfd(), name.c_str(), 0);
    sweepStates("");
    vm_unmark_state(m_vm.get()); // last: a mark without a state does no harm
    return true;
}

ServiceFailure VmRecord::markUsed(const std::string &name)
{
    if (vm_mark_state_used(m_vm.get(), name.c_str()) == 0)
        return {};
    return ServiceFailure::of("it can't be marked as used: state.used");
}

ServiceFailure VmRecord::unmark()
{
    return vm_unmark_state(m_vm.get()) == 0 ? ServiceFailure() : ServiceFailure::of("state.used");
}

// A configuration that can't be read may be one that names it.
bool VmRecord::names(const std::string &id, const char *tag, const std::string &state) const
{
    errno = 0;
    const std::unique_ptr<vm, Close> version(vmlib_get(m_library.get(), id.c_str(), tag));
    const char *file = version ? vm_config_path(version.get()) : nullptr;
    // The lock is taken first, without waiting, and held while the record is read: another VM's
    // record may be locked by anybody, for as long as it likes, and this VM's start is not to wait.
    const UniqueFd lock(file ? platform_openat_locked(vm_dir(version.get()), file,
                                                      O_RDONLY | O_NONBLOCK | O_CLOEXEC,
                                                      FileLock::shared, 0)
                             : -1);
    const KvTree config(lock ? vm_read_config(version.get()) : nullptr);
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

// Saved states of this VM that no configuration names: what a supervisor left that was killed
// before it recorded one, and what has been resumed.
void VmRecord::sweepStates(const std::string &kept)
{
    for (const std::string &name : state_names(m_images_dir, m_id))
        if (name != kept && !isNeeded(name))
            unlinkat(img_libfd(), name.c_str(), 0);
    // Whose removal was queued and is done now is forgotten; the rest waits for the controller.
    img_purge(image_exists, nullptr);
}
