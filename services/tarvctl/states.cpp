#include "services/tarvctl/service.h"

#include "tarvhv/cli2/exchange_pool.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>

namespace {

// Supervisors asked at the same time, so that the descriptors of a large library stay few.
constexpr size_t ASKED_AT_ONCE = 128;

VmState judge(const Exchange &exchange)
{
    VmState state{.status = VmStatus::malfunction, .state = "", .details = nullptr, .serves = true};
    if (!exchange.isServed() || exchange.error() == ENOTCONN)
        return {}; // it went away
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

// The exit statuses that the launch service keeps, by label; none when it can't be asked.
std::optional<std::map<std::string, int>> exit_statuses()
try {
    std::map<std::string, int> result;
    service_ensure();
    const Json answer = service_request("list", nullptr, std::chrono::seconds(5));
    if (!answer_ok(answer))
        return {};
    for (const Json &job : answer.at("body").at("jobs"))
        result[job.at("label").get<std::string>()] = job.at("status").get<int>();
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
        pool.add(Exchange(place_vm_socket(id), exchange_request("status"), patience),
                 [&states, id = id](const Exchange &exchange) { states[id] = judge(exchange); });
    for (ExchangePool *const all[] = {&pool}; !pool.empty();)
        if (exchange_turn(all, -1, std::nullopt) != 0)
            throw system_failure("status of VMs", errno);

    const auto ends = exit_statuses();
    for (const auto &[id, saved] : suspended) {
        VmState &state = states[id];
        if (state.serves)
            continue;
        auto end = ends ? ends->find(place_vm_job(id)) : std::map<std::string, int>::iterator();
        const bool ended_badly = ends && end != ends->end() && end->second != 0;
        const auto last_run = !ends         ? VmEvidence::LastRun::unknown
                              : ended_badly ? VmEvidence::LastRun::failed
                                            : VmEvidence::LastRun::clean;
        state.status = vm_status_of({.last_run = last_run, .saved_state = saved});
    }
    return states;
}

VmState query_state(const std::string &id, bool suspended)
{
    return query_states({{id, suspended}}, std::chrono::seconds(5)).at(id);
}
