#include "services/tarvctl/each.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

constexpr size_t THREADS_MAX = 8;

struct Outcome
{
    ExitStatus status = ExitStatus::ok;
    std::string message;
};

Outcome attempt(const VmRef &ref, const std::function<void(const VmRef &)> &action)
try {
    action(ref);
    return {};
} catch (const Failure &failure) {
    return {failure.status(), failure.what()};
} catch (const std::exception &error) {
    return {ExitStatus::failed, ref.label() + ": " + error.what()};
}

std::vector<VmRef> resolve_all(const std::vector<std::string> &texts)
{
    Library library;
    std::vector<VmRef> refs;
    for (const std::string &text : texts) {
        VmRef ref = library.resolve(text);
        if (std::none_of(refs.begin(), refs.end(),
                         [&](const VmRef &other) { return other.id == ref.id; }))
            refs.push_back(std::move(ref));
    }
    return refs;
}

Answer sum_up(const std::vector<VmRef> &refs, const std::vector<Outcome> &outcomes)
{
    Answer answer;
    Json vms = Json::array();
    for (size_t index = 0; index < refs.size(); ++index) {
        const Outcome &outcome = outcomes[index];
        const bool ok = outcome.status == ExitStatus::ok;
        Json item = {
            {"id", refs[index].id}, {"name", refs[index].name}, {"status", ok ? "OK" : "ERROR"}};
        if (!ok) {
            item["message"] = outcome.message;
            answer.message += (answer.message.empty() ? "" : "\n") + outcome.message;
            if (answer.status == ExitStatus::ok)
                answer.status = outcome.status;
        }
        vms.push_back(std::move(item));
    }
    answer.body = {{"vms", std::move(vms)}};
    return answer;
}

} // namespace

Answer for_each_vm(const std::vector<std::string> &texts, EachOrder order,
                   const std::function<void(const VmRef &)> &action)
{
    const std::vector<VmRef> refs = resolve_all(texts);
    std::vector<Outcome> outcomes(refs.size());
    std::atomic<size_t> next = 0;
    auto work = [&] {
        for (size_t index; (index = next++) < refs.size();)
            outcomes[index] = attempt(refs[index], action);
    };
    std::vector<std::thread> threads;
    if (order == EachOrder::together)
        for (size_t count = 1; count < std::min(refs.size(), THREADS_MAX); ++count)
            threads.emplace_back(work);
    work();
    for (std::thread &thread : threads)
        thread.join();
    return sum_up(refs, outcomes);
}
