#include "services/tarvctl/power.h"

#include "platform/watch.h"
#include "services/notify/notify.h"
#include "services/settings.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/each.h"
#include "services/tarvctl/service.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/peer.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// A supervisor gives up its own ladder well before this.
constexpr seconds END_PATIENCE(60);
constexpr seconds SUSPEND_PATIENCE(900);
// The kernel ends a process at once, but for one in the middle of a write to a disk that hangs.
constexpr seconds KILL_PATIENCE(10);
// A supervisor makes its socket first of all, and removes it last but for its report.
constexpr seconds LOST_PATIENCE(5);

seconds stop_patience()
{
    return stop_wait_setting() + END_PATIENCE;
}

// The process that the launch service has for the VM; 0 when it has none.
pid_t job_process(const std::string &id)
{
    const Json answer = service_request("status", place_vm_job(id), seconds(10));
    return answer_ok(answer) ? answer.value("body", Json::object()).value("pid", pid_t{0}) : 0;
}

// A watch on whoever runs the VM: the launch service's process, else that which serves the VM's
// socket. None when nobody does.
UniqueFd watch_runner(const VmRef &ref)
{
    UniqueFd watch;
    if (const pid_t job = job_process(ref.id); job > 0) {
        watch.reset(platform_watch_process(job));
    } else {
        const UniqueFd connection(cli2_connect(place_vm_socket(ref.id).c_str(), nullptr));
        if (!connection && (errno == ENOENT || errno == ECONNREFUSED))
            return {};
        watch.reset(connection ? peer_watch(connection.get()) : -1);
    }
    if (!watch && errno != ESRCH)
        throw Failure(ExitStatus::service,
                      ref.label() + ": failed to watch its supervisor: " + strerror(errno));
    return watch;
}

// Waits for the end of a watched process. False once the deadline has passed.
bool await_end(const UniqueFd &watch, Clock::time_point deadline)
{
    for (pollfd ended = {watch.get(), POLLIN, 0}; poll(&ended, 1, 100) <= 0;) {
        check_cancelled();
        if (Clock::now() > deadline)
            return false;
    }
    return true;
}

// After a stop or suspend was answered, the supervisor still has to leave. Its end is waited for as
// an event. The launch service tells an end that has happened before it answers a question that
// came later, so that asking again finds nobody, or the next supervisor.
void wait_gone(const VmRef &ref)
{
    const auto deadline = Clock::now() + END_PATIENCE;
    while (const UniqueFd watch = watch_runner(ref))
        if (!await_end(watch, deadline))
            throw Failure(ExitStatus::service, ref.label() + ": its supervisor does not end; "
                                                             "tarvctl stop --force ends it");
}

// Kills whoever serves the VM's socket: a supervisor that is no job of the launch service.
void kill_server(const VmRef &ref)
{
    UniqueFd fd(cli2_connect(place_vm_socket(ref.id).c_str(), nullptr));
    UniqueFd watch(fd ? peer_watch(fd.get()) : -1);
    if (!watch)
        return;
    if (platform_watch_signal(watch.get(), SIGKILL) != 0 && errno != ESRCH)
        throw system_failure(ref.label() + ": failed to end its supervisor", errno);
    await_end(watch, Clock::now() + KILL_PATIENCE);
}

// The answer of a running VM's supervisor; null when it left without one.
Json ask_running(const VmRef &ref, const char *command, const Json &value, seconds patience)
{
    auto answer = vm_request(ref.id, command, value, patience);
    if (answer && !answer_ok(*answer))
        throw Failure(answer->value("error", 0) == ETIMEDOUT ? ExitStatus::guest
                                                             : answer_exit_status(*answer),
                      ref.label() + ": " + answer_message(*answer));
    return answer ? *answer : Json();
}

void check_running(const VmRef &ref)
{
    const VmState state = settled_state(ref);
    if (!state.runs())
        throw Failure(ExitStatus::state, ref.label() + ": is not running");
    if (state.status == VmStatus::malfunction)
        throw Failure(ExitStatus::service, vm_silent_message(ref.label(), ref.id));
}

void stop_idle(Library &library, const VmRef &ref, bool force)
{
    UniqueFd lock = library.lock(ref);
    const bool suspended = is_suspended(library.read_config(ref).get());
    if (!suspended)
        throw Failure(ExitStatus::state, ref.label() + ": is not running");
    if (!force)
        throw Failure(ExitStatus::state,
                      ref.label() + ": is suspended; stop --force drops its state");
    check_not_running(ref, "stop");
    drop_state(library, ref);
    notify_post("change", ref.id.c_str());
}

void stop_one(const VmRef &ref, bool force)
{
    Library library;
    service_ensure();
    const VmState state = force ? query_state(ref.id, false) : settled_state(ref);
    if (!state.runs())
        return stop_idle(library, ref, force);
    if (!force) {
        check_running(ref);
        ask_running(ref, "stop", {{"force", false}}, stop_patience());
        return wait_gone(ref);
    }
    try {
        if (state.serves && state.status == VmStatus::running)
            ask_running(ref, "stop", {{"force", true}}, END_PATIENCE);
    } catch (const Failure &failure) {
        // Whatever the supervisor says to it, it is ended.
        if (failure.status() == ExitStatus::cancelled)
            throw;
    }
    end_by_force(ref);
}

void suspend_one(const VmRef &ref)
{
    Library library;
    service_ensure();
    check_running(ref);
    // The supervisor rewrites the record: a command that read it before and writes it afterwards
    // would lose the saved state.
    UniqueFd lock = library.lock(ref);
    check_running(ref);
    const bool answered = !ask_running(ref, "suspend", nullptr, SUSPEND_PATIENCE).is_null();
    wait_gone(ref);
    if (!answered && !is_suspended(library.read_config(ref).get()))
        throw Failure(ExitStatus::failed, ref.label() + ": ended without a saved state");
}

void reboot_one(const VmRef &ref)
{
    check_running(ref);
    if (ask_running(ref, "reboot", nullptr, seconds(30)).is_null())
        throw Failure(ExitStatus::state, ref.label() + ": ended before it could be rebooted");
}

} // namespace

VmState settled_state(const VmRef &ref)
{
    VmState state = query_state(ref.id, false);
    for (const auto deadline = Clock::now() + LOST_PATIENCE; !state.serves && state.job > 0;
         state = query_state(ref.id, false)) {
        if (Clock::now() > deadline)
            throw Failure(ExitStatus::service, vm_unreachable_message(ref.label(), ref.id));
        check_cancelled();
        const UniqueFd watch(platform_watch_process(state.job));
        pollfd ended = {watch.get(), POLLIN, 0};
        poll(&ended, 1, 30);
    }
    return state;
}

bool is_suspended(const struct kv *record)
{
    return kv_get(record, "state_file") != nullptr;
}

void check_not_running(const VmRef &ref, const std::string &intent)
{
    if (query_state(ref.id, false).runs())
        throw Failure(ExitStatus::state,
                      ref.label() + ": is running; stop it to " + intent + " it");
}

void drop_state(Library &library, const VmRef &ref)
{
    VmOwner vm = library.open(ref);
    vm_remove_state(vm.get());
    purge_images(library);
    if (is_suspended(library.read_config(ref).get()))
        throw Failure(ExitStatus::failed, ref.label() + ": failed to drop its saved state");
}

void end_by_force(const VmRef &ref)
{
    const Json answer = service_request("remove", place_vm_job(ref.id), stop_patience());
    if (!answer_ok(answer))
        throw Failure(ExitStatus::service, ref.label() + ": " + answer_message(answer));
    if (query_state(ref.id, false).serves)
        kill_server(ref);
    wait_gone(ref);
}

Answer run_stop(const Arguments &arguments)
{
    return for_each_vm(arguments.vms, EachOrder::together,
                       [&](const VmRef &ref) { stop_one(ref, arguments.force); });
}

Answer run_suspend(const Arguments &arguments)
{
    return for_each_vm(arguments.vms, EachOrder::together, suspend_one);
}

Answer run_reboot(const Arguments &arguments)
{
    return for_each_vm(arguments.vms, EachOrder::together, reboot_one);
}
