#include "services/tarvctl/service.h"

#include "platform/socket.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/peer.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// One supervisor being asked for its status.
struct Inquiry
{
    std::string id;
    UniqueFd fd;
    std::string text; // of the answer, so far
    bool done = false;
};

// A connection with the request sent, or none when nobody serves the socket. Never waits: a
// supervisor too busy to take it counts as silent.
UniqueFd ask(const std::string &id, bool &serves)
{
    static constexpr char request[] = "status\r\n";
    const std::string path = place_vm_socket(id);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    serves = false;
    if (path.size() >= sizeof address.sun_path)
        return {};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    UniqueFd fd(platform_socket_stream());
    if (!fd || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return {};
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        serves = errno == EAGAIN; // its queue is full, so somebody holds the socket
        return {};
    }
    if (!peer_is_trusted(fd.get()))
        return {};
    serves = true;
    if (cli2_send(fd.get(), request, sizeof request - 1, MSG_DONTWAIT) != 0)
        return {};
    return fd;
}

void take_bytes(Inquiry &inquiry)
{
    char bytes[4096];
    const ssize_t got = cli2_recv(inquiry.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (got > 0)
        inquiry.text.append(bytes, static_cast<size_t>(got));
    // An answer is one line; bytes past the cap are no answer.
    inquiry.done = (got == 0) || (got < 0 && errno != EAGAIN) || inquiry.text.ends_with("\r\n") ||
                   inquiry.text.size() > CLI2_MESSAGE_MAX;
}

void collect(std::vector<Inquiry> &inquiries, Clock::time_point deadline)
{
    for (;;) {
        std::vector<pollfd> waits;
        std::vector<Inquiry *> asked;
        for (Inquiry &inquiry : inquiries) {
            if (!inquiry.done) {
                waits.push_back({inquiry.fd.get(), POLLIN, 0});
                asked.push_back(&inquiry);
            }
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (waits.empty() || left <= 0)
            return;
        if (poll(waits.data(), waits.size(), static_cast<int>(left)) < 0 && errno != EINTR)
            return;
        for (size_t index = 0; index < waits.size(); ++index)
            if (waits[index].revents)
                take_bytes(*asked[index]);
    }
}

VmState judge(const Inquiry &inquiry)
{
    const Json answer = Json::parse(inquiry.text, nullptr, /*allow_exceptions=*/false);
    VmState state{.status = VmStatus::malfunction, .state = "", .details = nullptr, .serves = true};
    if (inquiry.done && inquiry.text.empty())
        return {}; // it went away
    if (!answer_ok(answer))
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
    std::vector<Inquiry> inquiries;
    const auto deadline = Clock::now() + patience;
    for (const auto &[id, saved] : suspended) {
        bool serves = false;
        UniqueFd fd = ask(id, serves);
        if (fd)
            inquiries.push_back({id, std::move(fd), "", false});
        else if (serves)
            states[id] = {
                .status = VmStatus::malfunction, .state = "", .details = nullptr, .serves = true};
    }
    collect(inquiries, deadline);
    for (const Inquiry &inquiry : inquiries)
        if (VmState state = judge(inquiry); state.serves)
            states[inquiry.id] = std::move(state);

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
