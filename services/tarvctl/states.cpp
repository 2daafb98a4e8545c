#include "services/tarvctl/service.h"

#include "tarvhv/cli2/exchange_pool.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>

namespace {

// Supervisors asked at the same time, so that the descriptors of a large library stay few.
constexpr size_t ASKED_AT_ONCE = 128;
// How often one that hangs up is asked again before that counts as a malfunction.
constexpr int HANG_UPS = 8;

VmState judge(const Exchange &exchange)
{
    VmState state{.status = VmStatus::malfunction, .state = "", .details = nullptr, .serves = true};
    if (!exchange.isServed())
        return {};
    const Json answer = answer_of(exchange);
    if (exchange.step() != Exchange::Step::done || !answer_ok(answer))
        return state;
    state.status = VmStatus::running;
    state.details = answer.value("body", Json::object());
    if (state.details.is_object() && state.details.contains("state") &&
        state.details["state"].is_string())
        state.state = state.details["state"].get<std::string>();
    return state;
}

// Asks one, and again when it hangs up without an answer. That says nothing: the VM may have ended,
// or the supervisor may have dropped who was slowest. If it has ended nobody serves the next time.
void ask(ExchangePool &pool, const std::string &id, std::chrono::milliseconds patience,
         std::map<std::string, VmState> &states, int again)
{
    pool.add(Exchange(place_vm_socket(id), exchange_request("status"), patience),
             [&pool, &states, id, patience, again](const Exchange &exchange) {
                 if (exchange.error() == ENOTCONN && again > 0)
                     ask(pool, id, patience, states, again - 1);
                 else
                     states[id] = judge(exchange);
             });
}

// What the launch service knows of one job.
struct JobEnd
{
    int status;
    pid_t pid; // while it runs
};

// The jobs that the launch service keeps, by label; none when it can't be asked.
std::optional<std::map<std::string, JobEnd>> known_jobs()
try {
    std::map<std::string, JobEnd> result;
    service_ensure();
    const Json answer = service_request("list", nullptr, std::chrono::seconds(5));
    if (!answer_ok(answer))
        return {};
    for (const Json &job : answer.at("body").at("jobs"))
        result[job.at("label").get<std::string>()] = {job.at("status").get<int>(),
                                                      job.value("pid", pid_t{0})};
    return result;
} catch (const Failure &) {
    return {};
} catch (const Json::exception &) {
    return {};
}

} // namespace

std::map<std::string, VmState> query_states(const std::map<std::string, bool> &suspended,
                                            std::chrono::milliseconds patience)
{
    std::map<std::string, VmState> states;
    ExchangePool pool(ASKED_AT_ONCE);
    for (const auto &[id, saved] : suspended)
        ask(pool, id, patience, states, HANG_UPS);
    for (ExchangePool *const all[] = {&pool}; !pool.empty();)
        if (exchange_turn(all, -1, std::nullopt) != 0)
            throw system_failure("status of VMs", errno);

    const auto jobs = known_jobs();
    for (const auto &[id, saved] : suspended) {
        VmState &state = states[id];
        JobEnd job{0, 0};
        if (jobs)
            if (const auto found = jobs->find(place_vm_job(id)); found != jobs->end())
                job = found->second;
        state.job = job.pid;
        if (state.serves)
            continue;
        // The launch service knows its process: it starts or leaves, or its socket was removed.
        if (job.pid > 0) {
            state.status = VmStatus::running;
            state.state = VM_STATE_UNREACHABLE;
            continue;
        }
        const auto last_run = !jobs             ? VmEvidence::LastRun::unknown
                              : job.status != 0 ? VmEvidence::LastRun::failed
                                                : VmEvidence::LastRun::clean;
        state.status = vm_status_of({.last_run = last_run, .saved_state = saved});
    }
    return states;
}

VmState query_state(const std::string &id, bool suspended)
{
    return query_states({{id, suspended}}, std::chrono::seconds(5)).at(id);
}
