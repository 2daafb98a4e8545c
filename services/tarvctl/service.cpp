#include "services/tarvctl/service.h"

#include "hostlib/vms/vms.h"
#include "platform/unique_fd.h"
#include "policy/json.h"
#include "policy/owners.h"
#include "services/tarvctl/cancel.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstring>

#include <poll.h>

namespace {

Json from_tree(const struct json *tree)
{
    return Json::parse(json_print(tree), nullptr, /*allow_exceptions=*/false);
}

JsonOwner to_tree(const Json &value)
{
    const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return JsonOwner(json_parse(text.data(), text.size()));
}

UniqueFd connect_with(const std::string &path, const std::string &command, const Json &value)
{
    if (value.is_null())
        return UniqueFd(cli2_connect(path.c_str(), command.c_str()));
    JsonOwner tree = to_tree(value);
    return UniqueFd(tree ? cli2_connect_json(path.c_str(), command.c_str(), tree.get()) : -1);
}

// One answer, waited for in short steps so that the command can be cancelled meanwhile.
JsonOwner receive(const UniqueFd &fd, std::chrono::seconds patience)
{
    using Clock = std::chrono::steady_clock;
    pollfd wait = {fd.get(), POLLIN, 0};
    for (const auto deadline = Clock::now() + patience; poll(&wait, 1, 100) <= 0;) {
        check_cancelled();
        if (Clock::now() > deadline) {
            errno = ETIMEDOUT;
            return nullptr;
        }
    }
    // Once it begins it comes in one piece.
    return JsonOwner(cli2_recv_json_to(fd.get(), timeval{.tv_sec = 5, .tv_usec = 0}));
}

} // namespace

void service_ensure()
{
    std::string message;
    if (vlaunchd_ensure(message) != 0)
        throw Failure(ExitStatus::service, "launch service: " + message);
}

Json service_request(const std::string &command, const Json &value, std::chrono::seconds patience)
{
    const std::string path = vms_launch_socket();
    UniqueFd fd = connect_with(path, command, value);
    JsonOwner answer = fd ? receive(fd, patience) : nullptr;
    if (!answer)
        throw Failure(ExitStatus::service, "launch service: " + path + ": " + strerror(errno));
    return from_tree(answer.get());
}

std::optional<Json> vm_request(const std::string &id, const std::string &command, const Json &value,
                               std::chrono::seconds patience)
{
    UniqueFd fd = connect_with(place_vm_socket(id), command, value);
    if (!fd)
        return {};
    JsonOwner answer = receive(fd, patience);
    if (answer)
        return from_tree(answer.get());
    if (errno == ENOTCONN || errno == ECONNRESET)
        return {};
    throw Failure(ExitStatus::service, place_vm_socket(id) + ": no answer: " + strerror(errno));
}

std::string vm_silent_message(const std::string &label, const std::string &id)
{
    return label + ": what serves " + place_vm_socket(id) +
           " does not answer; tarvctl stop --force ends a supervisor that hangs";
}

bool answer_ok(const Json &answer)
{
    return answer.is_object() && answer.value("status", "") == "OK";
}

std::string answer_message(const Json &answer)
{
    if (answer.is_object() && answer.contains("message") && answer["message"].is_string())
        return answer["message"].get<std::string>();
    return "answer without a message";
}
