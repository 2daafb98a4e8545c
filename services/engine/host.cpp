#include "services/engine/host.h"

#include "platform/kvm.h"
#include "platform/new_file.h"
#include "platform/unique_fd.h"
#include "services/engine/bridge.h"
#include "services/settings.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// QEMU gets the variables that it has a use for, and messages in English.
std::vector<std::string> environment()
{
    std::vector<std::string> result = {"LC_ALL=C"};
    for (const char *name : {"HOME", "PATH", "TMPDIR", "XDG_RUNTIME_DIR", "ALSA_CONFIG_PATH"})
        if (const char *value = std::getenv(name))
            result.push_back(std::string(name) + "=" + value);
    return result;
}

ServiceFailure check_file(const std::string &what, const std::string &path, int access_mode)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return ServiceFailure::of(what + " " + path);
    if (S_ISDIR(status.st_mode))
        return ServiceFailure::of(what + " " + path, EISDIR);
    if (access(path.c_str(), access_mode) != 0)
        return ServiceFailure::of(what + " " + path);
    return {};
}

bool ends_with_raw_suffix(const std::string &path)
{
    return path.ends_with(".raw") || path.ends_with(".img") || path.ends_with(".iso");
}

// A raw disk's content belongs to the guest, which could write another format's mark there: names
// that say raw are believed before the content is.
std::string disk_format(const std::string &path)
{
    constexpr std::string_view mark = "QFI\xfb";
    if (ends_with_raw_suffix(path))
        return "raw";
    std::array<char, mark.size()> start{};
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = fd ? read(fd.get(), start.data(), start.size()) : -1;
    return length == ssize_t(mark.size()) && mark == std::string_view(start.data(), start.size())
               ? "qcow2"
               : "raw";
}

// False with errno set.
bool copy_bytes(int from, int to)
{
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t length = read(from, buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return length == 0;
        if (platform_write_all(to, {buffer.data(), size_t(length)}) != 0)
            return false;
    }
}

// Checks an image as it is configured; a URL is never looked for on disk.
ServiceFailure check_image(const std::string &what, const EngineHost &host, const std::string &file,
                           int access_mode)
{
    if (machine_is_url(file))
        return {};
    return check_file(what, engine_image_path(host, file), access_mode);
}

} // namespace

ServiceFailure engine_accel_decide(const std::string &setting, int kvm_error, Accel *accel)
{
    *accel = Accel::tcg;
    if (setting == "tcg")
        return {};
    if (setting != "auto" && setting != "kvm")
        return {0, "engine_accel: \"" + setting + "\" is not one of auto, kvm, tcg"};
    if (kvm_error == 0) {
        *accel = Accel::kvm;
        return {};
    }
    if (setting == "auto")
        return {};
    const std::string reason = kvm_error == ENOTSUP
                                   ? "the processor offers no virtualisation"
                                   : std::string("/dev/kvm: ") + std::strerror(kvm_error);
    return {kvm_error, "engine_accel is kvm, but KVM can't be used: " + reason};
}

std::string qemu_program()
{
    return path_setting("qemu_executable", EngineHost().qemu);
}

ServiceFailure engine_host_read(const std::string &vm_dir, EngineHost *host)
{
    host->vm_dir = vm_dir;
    host->qemu = qemu_program();
    host->images_dir = path_setting("img_lib_dir", "");
    host->uefi_code = path_setting("uefi_code", host->uefi_code);
    host->uefi_vars = path_setting("uefi_vars", host->uefi_vars);
    host->audio_driver = access("/dev/snd/timer", R_OK | W_OK) == 0 ? "alsa" : "none";
    host->environment = environment();
    const int kvm_error = platform_kvm_check() == 0 ? 0 : errno;
    return engine_accel_decide(text_setting("engine_accel", "auto"), kvm_error, &host->accel);
}

ServiceFailure engine_host_check(const Machine &machine, EngineHost *host)
{
    if (auto failure = check_file("QEMU (setting qemu_executable)", host->qemu, X_OK))
        return failure;
    if (machine.firmware == Firmware::uefi) {
        if (auto failure = check_file("firmware (setting uefi_code)", host->uefi_code, R_OK))
            return failure;
        if (auto failure =
                check_file("firmware variables (setting uefi_vars)", host->uefi_vars, R_OK))
            return failure;
    }
    host->disk_formats.clear();
    for (size_t i = 0; i < machine.disks.size(); i++) {
        const std::string &file = machine.disks[i].file;
        const std::string key = "hard_drives[" + std::to_string(i) + "].file";
        if (auto failure = check_image(key + ": disk image", *host, file, R_OK | W_OK))
            return failure;
        host->disk_formats.push_back(
            machine_is_url(file) ? "raw" : disk_format(engine_image_path(*host, file)));
    }
    if (!machine.cdrom.empty())
        if (auto failure = check_image("cdrom: image", *host, machine.cdrom, R_OK))
            return failure;
    for (const MachineNetwork &network : machine.networks)
        if (network.mode == NetworkMode::bridge)
            if (auto failure = engine_bridge_check(*host, network.bridge))
                return failure;
    return {};
}

ServiceFailure engine_host_make_nvram(const Machine &machine, const EngineHost &host)
{
    const std::string path = host.vm_dir + "/nvram";
    if (machine.firmware != Firmware::uefi || access(path.c_str(), F_OK) == 0)
        return {};
    const UniqueFd from(open(host.uefi_vars.c_str(), O_RDONLY | O_CLOEXEC));
    // One maker at a time: it holds the VM's socket. The guest's variables are never half a file,
    // since the firmware would take that for a store of its own and repair it.
    NewFile store;
    if (from && store.make(AT_FDCWD, path.c_str(), 0600, FileMakers::one) >= 0 &&
        copy_bytes(from.get(), store.fd()) && store.replace() == 0)
        return {};
    return ServiceFailure::of(path + ": can't be made from " + host.uefi_vars);
}
