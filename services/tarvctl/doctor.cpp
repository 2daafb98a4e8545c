#include "hostlib/config/config.h"
#include "platform/host.h"
#include "platform/kvm.h"
#include "services/engine/host.h"
#include "services/notify/notify.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/qemu_img.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/table.h"
#include "services/vlaunchd/ondemand.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

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

std::string setting_path(const char *key, const char *missing)
{
    const char *value = config_find(key) ? config_get_path(key) : nullptr;
    return value ? value : missing;
}

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
    return check_file(std::string("setting ") + key, setting_path(key, ""), R_OK | W_OK | X_OK,
                      Verdict::bad, std::string("set ") + key + " to a directory of yours");
}

Finding check_program(const char *key, const char *missing, const char *remedy)
{
    return check_file(key, setting_path(key, missing), X_OK, Verdict::bad, remedy);
}

Finding check_engine()
{
    EngineHost host;
    std::string error;
    if (!engine_host_read("/", &host, &error))
        return {"acceleration", Verdict::bad, error, "set engine_accel to auto"};
    if (host.accel == Accel::kvm)
        return {"acceleration", Verdict::ok, "KVM"};
    const bool usable = platform_kvm_check() == 0;
    const int reason = usable ? 0 : errno;
    const std::string why = usable              ? "the setting engine_accel rules KVM out"
                            : reason == ENOTSUP ? "the processor offers no virtualisation"
                                                : std::string("/dev/kvm: ") + strerror(reason);
    return {"acceleration", Verdict::note, "emulation, which is slow: " + why,
            usable             ? "set engine_accel to auto"
            : reason == EACCES ? "usermod -aG kvm $USER"
                               : "switch on virtualisation in this machine's firmware"};
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
    std::string message;
    if (vlaunchd_ensure(message) == 0)
        return {"launch service", Verdict::ok, vlaunchd_socket_path()};
    return {"launch service", Verdict::bad, message,
            "set vlaunch_sock to a path in a directory of yours"};
}

Finding check_agreement()
{
    const std::string marker =
        std::string(platform_path(PlatformPath::support_dir)) + "/.TarvEulaAccepted";
    return check_file("agreement", marker, F_OK, Verdict::note, "tarvctl eula accept");
}

std::vector<Finding> examine()
{
    return {
        check_directory("vm_lib_dir"),
        check_directory("img_lib_dir"),
        check_file("setting log_dir", setting_path("log_dir", ""), W_OK | X_OK, Verdict::note,
                   "set log_dir to a directory of yours"),
        check_program("qemu_executable", "/usr/bin/qemu-system-x86_64",
                      "apt install qemu-system-x86"),
        check_file("qemu_img_executable", qemu_img_program(), X_OK, Verdict::bad,
                   "apt install qemu-utils"),
        check_file("UEFI firmware", setting_path("uefi_code", "/usr/share/OVMF/OVMF_CODE_4M.fd"),
                   R_OK, Verdict::note, "apt install ovmf"),
        check_engine(),
        check_program("vlaunchd_executable", "", "set vlaunchd_executable to the launch service"),
        check_program("supervisor_executable", "", "set supervisor_executable to the supervisor"),
        check_service(),
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
        if (finding.verdict == Verdict::bad && answer.status == ExitStatus::ok) {
            answer.status = ExitStatus::failed;
            answer.message = finding.subject + ": " + finding.message;
        }
    }
    answer.text = table.text();
    return answer;
}
