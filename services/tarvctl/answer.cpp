#include "services/tarvctl/answer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

ExitStatus exit_status_of(int error)
{
    if (error == ENOSPC || error == EDQUOT)
        return ExitStatus::space;
    return error == EBUSY || error == EEXIST ? ExitStatus::state : ExitStatus::failed;
}

Failure system_failure(const std::string &what, int error)
{
    const bool full = exit_status_of(error) == ExitStatus::space;
    return {full ? ExitStatus::space : ExitStatus::failed, what + ": " + strerror(error)};
}

namespace {

int print_for_programs(const Answer &answer)
{
    Json object = {{"status", answer.status == ExitStatus::ok ? "OK" : "ERROR"},
                   {"message", answer.message}};
    if (answer.status != ExitStatus::ok)
        object["error"] = static_cast<int>(answer.status);
    object["body"] = answer.body;
    // Names and paths may hold any bytes; the answer is JSON all the same.
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    return fputs(line.c_str(), stdout);
}

int print_for_people(const Answer &answer)
{
    int result = fputs(answer.text.c_str(), stdout);
    if (answer.message.empty())
        return result;
    if (answer.status != ExitStatus::ok)
        fprintf(stderr, "tarvctl: %s\n", answer.message.c_str());
    else if (result >= 0)
        result = printf("%s\n", answer.message.c_str());
    return result;
}

} // namespace

int print_answer(const Answer &answer, bool machine)
{
    const int result = machine ? print_for_programs(answer) : print_for_people(answer);
    if ((result < 0 || fflush(stdout) != 0) && answer.status == ExitStatus::ok) {
        fprintf(stderr, "tarvctl: standard output: %s\n", strerror(errno));
        return static_cast<int>(ExitStatus::failed);
    }
    return static_cast<int>(answer.status);
}
