#include "services/tarvctl/service.h"

#include "hostlib/vms/vms.h"
#include "services/tarvctl/cancel.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2/exchange.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstring>

namespace {

Exchange question(const std::string &path, const std::string &command, const Json &value,
                  std::chrono::milliseconds patience)
{
    const std::string text =
        value.is_null() ? "" : value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return Exchange(path, exchange_request(command, text), patience);
}

} // namespace

Json answer_of(const Exchange &exchange)
{
    return Json::parse(exchange.answerText(), nullptr, /*allow_exceptions=*/false);
}

void service_ensure()
{
    if (const ServiceFailure failure = vlaunchd_ensure())
        throw Failure(ExitStatus::service, "launch service: " + failure.text);
}

Json service_request(const std::string &command, const Json &value, std::chrono::seconds patience)
{
    Json request = value;
    if (request.is_object())
        request[REQUEST_DEADLINE] = request_deadline(patience);
    Exchange exchange = question(vms_launch_socket(), command, request, patience);
    if (exchange_run(exchange, Exchange::Step::done, check_cancelled) != Exchange::Step::done)
        throw Failure(ExitStatus::service, std::string("launch service: ") + vms_launch_socket() +
                                               ": " + strerror(exchange.error()));
    return answer_of(exchange);
}

std::optional<Json> vm_request(const std::string &id, const std::string &command, const Json &value,
                               std::chrono::seconds patience)
{
    Exchange exchange = question(place_vm_socket(id), command, value, patience);
    // A supervisor that ends with the request unread, or that was never there, has no answer to
    // give.
    if (exchange_run(exchange, Exchange::Step::done, check_cancelled) == Exchange::Step::done)
        return answer_of(exchange);
    if (!exchange.isServed() || exchange.error() == ENOTCONN || exchange.error() == ECONNRESET)
        return {};
    throw Failure(ExitStatus::service,
                  place_vm_socket(id) + ": no answer: " + strerror(exchange.error()));
}

std::string vm_unreachable_message(const std::string &label, const std::string &id)
{
    return label + ": runs, but nobody serves " + place_vm_socket(id) +
           "; tarvctl stop --force ends it";
}

std::string vm_silent_message(const std::string &label, const std::string &id)
{
    return label + ": what serves " + place_vm_socket(id) +
           " does not answer; tarvctl stop --force ends a supervisor that hangs";
}

bool answer_ok(const Json &answer)
{
    return answer.is_object() && answer.contains("status") && answer["status"] == "OK";
}

ExitStatus answer_exit_status(const Json &answer)
{
    const bool tells =
        answer.is_object() && answer.contains("error") && answer["error"].is_number_integer();
    return exit_status_of(tells ? answer["error"].get<int>() : 0);
}

std::string answer_message(const Json &answer)
{
    if (answer.is_object() && answer.contains("message") && answer["message"].is_string())
        return answer["message"].get<std::string>();
    return "answer without a message";
}
