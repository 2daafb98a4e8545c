#include "hostlib/config/config.h"
#include "platform/watch.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/each.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/viewer.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <mutex>

#include <poll.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// An earlier supervisor may still be leaving when the next one is asked for.
constexpr seconds LEAVING_PATIENCE(20);
// From the job's start until the guest runs; a large saved state takes its time.
constexpr seconds RUNNING_PATIENCE(300);

// How long a start is left alone between two questions: a guest takes half a second at least.
constexpr std::chrono::milliseconds STEP(30);

// A step of waiting, shorter when the watched process (none: just a step) ends: once.
void pause_step(UniqueFd &watch)
{
    pollfd ended = {watch.get(), POLLIN, 0};
    if (poll(&ended, 1, int(STEP.count())) > 0)
        watch.reset();
}

// The job as the launch service takes it.
Json job_request(const VmRef &ref, StartMode mode)
{
    const char *program = config_get_path("supervisor_executable");
    if (!program)
        throw Failure(ExitStatus::failed, "setting supervisor_executable: not set");
    Json arguments = start_mode_arguments(mode);
    arguments.push_back(ref.id);
    Json environment = Json::object();
    for (const std::string &item : vlaunchd_environment())
        if (const size_t equals = item.find('='); equals != std::string::npos && equals > 0)
            environment[item.substr(0, equals)] = item.substr(equals + 1);
    return {{"label", place_vm_job(ref.id)},
            {"program", program},
            {"arguments", arguments},
            {"environment", environment}};
}

// Has the VM's job run. A watch on its process.
UniqueFd launch(const VmRef &ref, StartMode mode)
{
    const Json request = job_request(ref, mode);
    const auto deadline = Clock::now() + LEAVING_PATIENCE;
    for (UniqueFd none;; pause_step(none)) {
        const Json answer = service_request("start", request, seconds(30));
        if (answer_ok(answer))
            return UniqueFd(platform_watch_process(answer.at("body").at("pid").get<pid_t>()));
        const int error = answer.value("error", 0);
        const bool leaving = error == EEXIST || error == EBUSY;
        if (!leaving)
            throw Failure(answer_exit_status(answer), ref.label() + ": " + answer_message(answer));
        if (Clock::now() > deadline)
            throw Failure(ExitStatus::state, ref.label() + ": " + answer_message(answer));
        check_cancelled();
    }
}

// Fails with the supervisor's message once its job has ended.
void check_job(const VmRef &ref)
{
    const Json answer = service_request("status", place_vm_job(ref.id), seconds(30));
    const Json body = answer.value("body", Json::object());
    const bool ended = answer.value("error", 0) == CLI2_ERROR_JOB_ENDED;
    if (ended && body.value("status", 0) != 0)
        throw Failure(ExitStatus::failed, ref.label() + ": " + answer_message(answer));
    if (!ended && !answer_ok(answer))
        throw Failure(ExitStatus::service, ref.label() + ": " + answer_message(answer));
    if (!body.contains("pid"))
        throw Failure(ExitStatus::failed, ref.label() + ": was stopped while it started");
}

void await_running(const VmRef &ref, UniqueFd watch = {})
{
    const auto deadline = Clock::now() + RUNNING_PATIENCE;
    for (;; pause_step(watch)) {
        check_cancelled();
        const VmState state = query_state(ref.id, false);
        // One that is being stopped already may never have run.
        if (state.serves && state.status == VmStatus::running && state.state != VM_STATE_STARTING &&
            state.state != VM_STATE_STOPPING)
            return;
        if (!state.serves)
            check_job(ref);
        if (Clock::now() > deadline)
            throw Failure(ExitStatus::service, ref.label() + ": does not get to run; "
                                                             "tarvctl stop --force ends it");
    }
}

// Starts the VM; one that runs already is only waited for when its screen is wanted.
void start_one(const VmRef &ref, StartMode mode, bool view)
{
    Library library;
    service_ensure();
    UniqueFd lock = library.lock(ref);
    const VmState state = settled_state(ref);
    if (state.status == VmStatus::malfunction)
        throw Failure(ExitStatus::service, vm_silent_message(ref.label(), ref.id));
    if (state.serves) {
        if (!view)
            throw Failure(ExitStatus::state, ref.label() + ": is already running");
        return await_running(ref);
    }
    library.read_config(ref);
    UniqueFd watch = launch(ref, mode);
    try {
        await_running(ref, std::move(watch));
    } catch (const Failure &failure) {
        if (failure.status() == ExitStatus::cancelled)
            service_request("remove", place_vm_job(ref.id), seconds(60));
        throw;
    }
}

} // namespace

Answer run_start(const Arguments &arguments)
{
    std::mutex notes_lock;
    std::string note;
    Answer answer = for_each_vm(arguments.vms, EachOrder::together, [&](const VmRef &ref) {
        start_one(ref, arguments.mode, arguments.view);
        if (!arguments.view)
            return;
        const std::string said = open_viewer(ref.id);
        const std::lock_guard guard(notes_lock);
        note = said;
    });
    if (answer.status == ExitStatus::ok)
        answer.message = note;
    return answer;
}
