#include "hostlib/vms/vms.h"
#include "platform/host.h"
#include "platform/kvm.h"
#include "services/engine/bridge.h"
#include "services/engine/host.h"
#include "services/engine/machine_types.h"
#include "services/notify/notify.h"
#include "services/settings.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/store.h"
#include "services/tarvctl/table.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2/places.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include <sys/stat.h>
#include <unistd.h>

namespace {

enum class Verdict
{
    ok,
    note, // works without
    bad
};

// One thing that was looked at.
struct Finding
{
    std::string subject;
    Verdict verdict = Verdict::ok;
    std::string message = {};
    std::string remedy = {}; // a command, or what to set
};

Finding check_file(const std::string &subject, const std::string &path, int mode, Verdict missing,
                   const std::string &remedy)
{
    if (path.empty())
        return {subject, missing, "not set", remedy};
    if (access(path.c_str(), mode) == 0)
        return {subject, Verdict::ok, path};
    return {subject, missing, path + ": " + strerror(errno), remedy};
}

Finding check_directory(const char *key)
{
    return check_file(std::string("setting ") + key, path_setting(key, ""), R_OK | W_OK | X_OK,
                      Verdict::bad, std::string("set ") + key + " to a directory of yours");
}

// A program or file that a package brings, unless a setting says where it is.
Finding check_packaged(const char *key, const std::string &usual, int mode, Verdict missing,
                       const std::string &package)
{
    const std::string path = path_setting(key, usual);
    return check_file(key, path, mode, missing,
                      path == usual ? "apt install " + package
                                    : std::string("take ") + key + " out of the settings, or set " +
                                          "it to what takes the place of " + usual);
}

// One of the product's own programs.
Finding check_own(const char *key, const std::string &what)
{
    return check_file(key, path_setting(key, ""), X_OK, Verdict::bad,
                      std::string("set ") + key + " to the path of " + what);
}

Finding check_settings()
{
    const char *given = getenv("TARV_CONFIG_PATH");
    const std::string list =
        given ? given
              : std::string(platform_path(PlatformPath::support_dir)) + ":~/.tarv/settings.ini";
    if (config_find(nullptr))
        return {"settings", Verdict::ok, list};
    return {"settings", Verdict::bad, "no section [tarv] in " + list,
            "write a settings.ini there; what is in it is told below"};
}

Finding check_engine()
{
    EngineHost host;
    if (const ServiceFailure failure = engine_host_read("/", &host))
        return {"acceleration", Verdict::bad, failure.text, "set engine_accel to auto"};
    if (host.accel == Accel::kvm)
        return {"acceleration", Verdict::ok, "KVM"};
    const bool usable = platform_kvm_check() == 0;
    const int reason = usable ? 0 : errno;
    const std::string why = usable              ? "the setting engine_accel rules KVM out"
                            : reason == ENOTSUP ? "the processor offers no virtualisation"
                                                : std::string("/dev/kvm: ") + strerror(reason);
    return {"acceleration", Verdict::note, "emulation, which is slow: " + why,
            usable             ? "set engine_accel to auto"
            : reason == EACCES ? "as root: usermod -aG kvm YOU; then log in anew"
            : reason == ENOENT ? "as root: modprobe kvm_intel, or kvm_amd"
                               : "switch on virtualisation in this machine's firmware"};
}

// A VM is made for one machine of QEMU, which a later QEMU may have dropped.
Finding check_machines()
try {
    const std::string subject = "machine types";
    std::vector<std::string> types;
    if (access(qemu_program().c_str(), X_OK) != 0)
        return {subject, Verdict::note, "QEMU can't be asked", "see qemu_executable"};
    if (const ServiceFailure failure = machine_types_of(qemu_program(), &types))
        return {subject, Verdict::bad, failure.text, "set qemu_executable to a QEMU for x86-64"};
    Library library;
    for (const std::string &id : library.ids()) {
        VmOwner vm = library.open({id, ""});
        const KvOwner record(vm_read_config(vm.get()));
        const std::string type = config_text(record.get(), "machine");
        if (type.empty() || std::find(types.begin(), types.end(), type) != types.end())
            continue;
        const bool saved = is_suspended(record.get());
        std::string message = id;
        message.append(" was made for ").append(type).append(", which this QEMU lacks");
        return {subject, Verdict::bad, message,
                saved ? "resume it with the QEMU that suspended it, or tarvctl stop --force " + id +
                            ", which drops its state"
                      : "tarvctl modify " + id + " set machine newest"};
    }
    return {subject, Verdict::ok, types.front()};
} catch (const Failure &failure) {
    return {"machine types", Verdict::bad, failure.what(), "see above"};
}

// What of VMs other users of this machine can read or write. It is closed here and now: a disk
// holds whatever its guest holds.
Finding check_privacy()
try {
    const std::string subject = "privacy of VMs";
    std::string first;
    size_t count = 0;
    const auto close_to_others = [&](const std::string &path) {
        struct stat status;
        if (lstat(path.c_str(), &status) != 0 || status.st_uid != geteuid() ||
            (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) || (status.st_mode & 077) == 0)
            return;
        if (chmod(path.c_str(), status.st_mode & 07700) != 0)
            throw system_failure(path, errno);
        first = first.empty() ? path : first;
        ++count;
    };
    Library library;
    for (const std::string &id : library.ids())
        close_to_others(library.directory() + "/" + id);
    library.each_config([&](const struct kv *record) {
        for (const std::string &image : library_images(record))
            close_to_others(image_path(image));
    });
    if (count == 0)
        return {subject, Verdict::ok, "closed to other users"};
    return {subject, Verdict::note,
            first + (count > 1 ? " and " + std::to_string(count - 1) + " more" : "") +
                " could be read by other users",
            "closed to them now"};
} catch (const Failure &failure) {
    return {"privacy of VMs", Verdict::bad, failure.what(), "see above"};
}

Finding check_bus()
{
    const std::string address = notify_bus_address();
    if (!address.empty() && notify_bus_answers())
        return {"session bus", Verdict::ok, address};
    return {"session bus", Verdict::note,
            (address.empty() ? "there is none" : address + " does not answer") +
                ": windows learn of changes late",
            "apt install dbus-user-session, and log in anew"};
}

Finding check_service()
{
    const ServiceFailure failure = vlaunchd_ensure();
    if (!failure)
        return {"launch service", Verdict::ok, vms_launch_socket()};
    const int error = failure.error;
    const bool has_program = !path_setting("vlaunchd_executable", "").empty();
    return {"launch service", Verdict::bad, failure.text,
            !has_program                            ? "set vlaunchd_executable"
            : error == ECHILD || error == ETIMEDOUT ? "see what its log says"
                                                    : "set vlaunch_sock to a path in a directory "
                                                      "of yours"};
}

// The sockets of the VMs are in a directory where everybody can make files.
Finding check_vm_sockets()
try {
    const std::string subject = "sockets of VMs";
    Library library;
    std::map<std::string, bool> ids;
    for (const std::string &id : library.ids()) {
        struct stat status;
        const std::string path = place_vm_socket(id);
        if (lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid())
            return {subject, Verdict::bad, path + " is somebody else's", "as root: rm " + path};
        ids[id] = false;
    }
    for (const auto &[id, state] : query_states(ids, std::chrono::milliseconds(1500)))
        if (state.status == VmStatus::malfunction)
            return {subject, Verdict::bad, place_vm_socket(id) + " does not answer",
                    "tarvctl stop --force " + id};
    return {subject, Verdict::ok, place_vm_socket("ID")};
} catch (const Failure &failure) {
    return {"sockets of VMs", Verdict::bad, failure.what(), "see above"};
}

Finding check_bridge()
{
    const ServiceFailure failure = engine_bridge_check(EngineHost(), "br0");
    if (!failure)
        return {"bridged networks", Verdict::ok, "br0"};
    // The message ends with the command.
    const size_t remedy = failure.text.rfind("; ");
    return {"bridged networks", Verdict::note, failure.text.substr(0, remedy),
            failure.text.substr(remedy + 2)};
}

Finding check_agreement()
{
    const std::string marker =
        std::string(platform_path(PlatformPath::support_dir)) + "/.TarvEulaAccepted";
    return check_file("agreement", marker, F_OK, Verdict::note, "tarvctl eula accept");
}

std::vector<Finding> examine()
{
    const EngineHost usual;
    return {
        check_settings(),
        check_directory("vm_lib_dir"),
        check_directory("img_lib_dir"),
        check_file("setting log_dir", path_setting("log_dir", ""), W_OK | X_OK, Verdict::note,
                   "set log_dir to a directory of yours"),
        check_packaged("qemu_executable", usual.qemu, X_OK, Verdict::bad, "qemu-system-x86"),
        check_packaged("qemu_img_executable", "/usr/bin/qemu-img", X_OK, Verdict::bad,
                       "qemu-utils"),
        check_packaged("uefi_code", usual.uefi_code, R_OK, Verdict::note, "ovmf"),
        check_packaged("uefi_vars", usual.uefi_vars, R_OK, Verdict::note, "ovmf"),
        check_file("names of discs", "/usr/bin/osinfo-detect", X_OK, Verdict::note,
                   "apt install libosinfo-bin"),
        check_engine(),
        check_machines(),
        check_privacy(),
        check_bridge(),
        check_own("vlaunchd_executable", "vlaunchd"),
        check_own("supervisor_executable", "tarvvm"),
        check_service(),
        check_vm_sockets(),
        check_bus(),
        check_agreement(),
    };
}

std::string verdict_text(Verdict verdict)
{
    return verdict == Verdict::ok     ? coloured("ok", 32)
           : verdict == Verdict::note ? coloured("note", 33)
                                      : coloured("BAD", 31);
}

} // namespace

Answer run_doctor(const Arguments &)
{
    Answer answer{.body = Json::array()};
    Table table({"", "WHAT", "STATE", "REMEDY"});
    for (const Finding &finding : examine()) {
        const bool ok = finding.verdict == Verdict::ok;
        const char *word = ok ? "ok" : finding.verdict == Verdict::note ? "note" : "bad";
        answer.body.push_back({{"subject", finding.subject},
                               {"verdict", word},
                               {"message", finding.message},
                               {"remedy", finding.remedy}});
        table.add_row({verdict_text(finding.verdict), finding.subject, printable(finding.message),
                       finding.remedy});
        if (finding.verdict == Verdict::bad) {
            answer.message +=
                (answer.status == ExitStatus::ok ? "to be mended: " : ", ") + finding.subject;
            answer.status = ExitStatus::failed;
        }
    }
    answer.text = table.text();
    return answer;
}
