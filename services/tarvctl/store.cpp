#include "services/tarvctl/store.h"

#include "hostlib/config/config.h"
#include "platform/file.h"
#include "platform/new_file.h"
#include "services/tarvctl/cancel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t VM_NAME_MAX = 255;
constexpr auto LOCK_PATIENCE = std::chrono::seconds(60);

// Locks a directory. One that vanished while it was waited for is ENOENT.
UniqueFd lock_directory(const std::string &path)
{
    const auto deadline = std::chrono::steady_clock::now() + LOCK_PATIENCE;
    for (;;) {
        UniqueFd fd(platform_openat_locked(
            AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK, FileLock::exclusive, 0));
        struct stat held, named;
        if (fd && fstat(fd.get(), &held) == 0 && stat(path.c_str(), &named) == 0 &&
            held.st_ino == named.st_ino && held.st_dev == named.st_dev)
            return fd;
        if (!fd && errno != EWOULDBLOCK && errno != EINTR)
            return {};
        if (std::chrono::steady_clock::now() > deadline) {
            errno = EWOULDBLOCK;
            return {};
        }
        check_cancelled();
        usleep(20'000);
    }
}

} // namespace

std::string VmRef::label() const
{
    return name.empty() ? id : name + " (" + id + ")";
}

Library::Library()
{
    const char *path = config_get_path("vm_lib_dir");
    if (!path)
        throw Failure(ExitStatus::failed, "setting vm_lib_dir: not set");
    m_path = path;
    m_lib.reset(vmlib_open(path));
    if (access(path, R_OK | X_OK) != 0)
        throw system_failure("VM library " + m_path, errno);
}

std::vector<std::string> Library::ids()
{
    std::vector<std::string> result;
    vmlib_reset(m_lib.get());
    while (const char *id = vmlib_next(m_lib.get()))
        result.emplace_back(id);
    return result;
}

VmOwner Library::open(const VmRef &ref)
{
    VmOwner vm(vmlib_get(m_lib.get(), ref.id.c_str(), nullptr));
    if (!vm)
        throw system_failure("VM " + ref.id, errno);
    return vm;
}

KvOwner Library::read_config(const VmRef &ref)
{
    VmOwner vm = open(ref);
    errno = 0;
    KvOwner record(vm_read_config(vm.get()));
    if (record)
        return record;
    const std::string file = m_path + "/" + ref.id + "/" + vm_config_path(vm.get());
    if (errno == EINVAL || errno == E2BIG || errno == EFBIG) {
        const std::string fault = kv_yaml_error();
        throw Failure(ExitStatus::input, file + ": " + (fault.empty() ? "not YAML" : fault));
    }
    if (errno == ENOTSUP)
        throw Failure(ExitStatus::input, file + ": is not a file");
    throw system_failure(file, errno);
}

VmRef Library::resolve(const std::string &text)
{
    if (text.empty())
        throw Failure(ExitStatus::usage, "an empty text names no VM");
    std::vector<VmRef> named;
    for (const std::string &id : ids()) {
        VmOwner vm(vmlib_get(m_lib.get(), id.c_str(), nullptr));
        const bool same = strcasecmp(id.c_str(), text.c_str()) == 0;
        KvOwner record(vm ? vm_read_config(vm.get()) : nullptr);
        const std::string name = config_text(record.get(), "name");
        if (same)
            return {id, name};
        if (name == text)
            named.push_back({id, name});
    }
    if (named.empty())
        throw Failure(ExitStatus::not_found, "no VM has the identifier or name \"" + text + "\"");
    if (named.size() > 1)
        throw Failure(ExitStatus::not_found, "several VMs have the name \"" + text +
                                                 "\": use the identifier, as " + named[0].id);
    return named[0];
}

void Library::check_name_free(const std::string &name, const std::string &except)
{
    check_name(name);
    for (const std::string &id : ids()) {
        if (id == except)
            continue;
        VmOwner vm(vmlib_get(m_lib.get(), id.c_str(), nullptr));
        KvOwner record(vm ? vm_read_config(vm.get()) : nullptr);
        if (strcasecmp(id.c_str(), name.c_str()) == 0 || config_text(record.get(), "name") == name)
            throw Failure(ExitStatus::exists, "a VM of the name \"" + name + "\" exists already");
    }
}

bool Library::each_config(const std::function<void(const struct kv *)> &visit)
{
    bool complete = true;
    auto visit_one = [&](const std::string &id, const char *tag) {
        errno = 0;
        VmOwner vm(vmlib_get(m_lib.get(), id.c_str(), tag));
        KvOwner record(vm ? vm_read_config(vm.get()) : nullptr);
        if (record)
            visit(record.get());
        else
            complete = complete && errno == ENOENT;
    };
    for (const std::string &id : ids()) {
        visit_one(id, nullptr);
        for (const char *tag = vmlib_tag_first(m_lib.get(), id.c_str()); tag;
             tag = vmlib_tag_next(m_lib.get(), id.c_str()))
            visit_one(id, std::string(tag).c_str());
    }
    return complete;
}

void Library::remove(const VmRef &ref)
{
    // Its result also stands for the log that goes with a VM; only the directory counts here.
    errno = 0;
    vmlib_delete(m_lib.get(), ref.id.c_str(), nullptr);
    const int error = errno;
    const std::string path = m_path + "/" + ref.id;
    if (access(path.c_str(), F_OK) == 0 || platform_sync_directory_of(AT_FDCWD, path.c_str()) != 0)
        throw system_failure("failed to delete " + ref.label(), error ? error : errno);
}

UniqueFd Library::lock()
{
    UniqueFd fd = lock_directory(m_path);
    if (!fd)
        throw system_failure("failed to lock " + m_path, errno);
    return fd;
}

UniqueFd Library::lock(const VmRef &ref)
{
    UniqueFd fd = lock_directory(m_path + "/" + ref.id);
    if (fd)
        return fd;
    if (errno == ENOENT)
        throw Failure(ExitStatus::not_found, ref.label() + ": has been deleted");
    if (errno == EWOULDBLOCK)
        throw Failure(ExitStatus::state, ref.label() + ": another command is at work on it");
    throw system_failure("failed to lock " + ref.label(), errno);
}

std::string config_text(const struct kv *record, const char *path)
{
    return record ? kv_get_str(record, path, "") : "";
}

void check_name(const std::string &name)
{
    auto refuse = [&](const char *why) {
        throw Failure(ExitStatus::input, "name \"" + name + "\": " + why);
    };
    if (name.empty())
        refuse("is empty");
    if (name.size() > VM_NAME_MAX)
        refuse("is longer than 255 bytes");
    if (name.front() == '-')
        refuse("begins with \"-\"");
    if (std::any_of(name.begin(), name.end(), [](unsigned char byte) { return byte < 32; }))
        refuse("holds a control character");
}
