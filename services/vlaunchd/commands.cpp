#include "services/vlaunchd/commands.h"

#include "hostlib/utils/utils.h"
#include "platform/host.h"
#include "platform/new_file.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/exchange.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>

namespace {

std::string answer_ok(JsonOwner body)
{
    JsonOwner answer(json_mkobject());
    json_append_str(answer.get(), "status", "OK");
    if (body)
        json_append(answer.get(), "body", body.release());
    return json_print(answer.get()) + "\r\n";
}

std::string answer_error(int error, const std::string &message, JsonOwner body = nullptr)
{
    JsonOwner answer(json_mkobject());
    json_append_str(answer.get(), "status", "ERROR");
    json_append_int64(answer.get(), "error", error);
    json_append_str(answer.get(), "message", message.c_str());
    if (body)
        json_append(answer.get(), "body", body.release());
    return json_print(answer.get()) + "\r\n";
}

JsonOwner job_body(const Job &job)
{
    JsonOwner body(json_mkobject());
    json_append_int64(body.get(), "status", job.status);
    if (job.state != JobState::ended)
        json_append_int64(body.get(), "pid", job.pid);
    return body;
}

void run_status(JobTable &jobs, const struct json *value, const CommandReply &reply)
{
    const Job *job = jobs.find(json_str(value));
    if (job && job->state == JobState::ended)
        return reply(answer_error(CLI2_ERROR_JOB_ENDED, job->message, job_body(*job)));
    JsonOwner body(job ? job_body(*job) : JsonOwner(json_mkobject()));
    if (!job)
        json_append_int64(body.get(), "status", 0); // never started here: nothing has failed
    reply(answer_ok(std::move(body)));
}

// Reads a `start` request. "" when it is sound, else what is wrong with it.
std::string read_request(const struct json *value, JobRequest &request)
{
    request.label = json_find_str(value, "label", "");
    request.program = json_find_str(value, "program", "");
    const struct json *arguments = json_find_member(value, "arguments");
    if (arguments && json_kind(arguments) != JSON_ARRAY)
        return "arguments: not a list";
    for (auto *item = json_first_child(arguments); item; item = json_next(item)) {
        if (json_kind(item) != JSON_STRING)
            return "arguments: not a text";
        request.arguments.emplace_back(json_str(item));
    }
    const struct json *environment = json_find_member(value, "environment");
    if (environment && json_kind(environment) != JSON_OBJECT)
        return "environment: not an object";
    for (auto *item = json_first_child(environment); item; item = json_next(item)) {
        const std::string name = json_name(item);
        if (json_kind(item) != JSON_STRING || name.empty() || name.find('=') != std::string::npos)
            return "environment: not a name with a text: " + name;
        request.environment[name] = json_str(item);
    }
    return "";
}

void run_start(JobTable &jobs, const struct json *value, const CommandReply &reply)
{
    JobRequest request;
    const std::string fault = read_request(value, request);
    if (!fault.empty())
        return reply(answer_error(EINVAL, fault));
    const JobTable::Started started = jobs.start(request);
    if (started.error)
        return reply(answer_error(started.error, started.message));
    JsonOwner body(json_mkobject());
    json_append_int64(body.get(), "pid", started.pid);
    reply(answer_ok(std::move(body)));
}

void run_remove(JobTable &jobs, const struct json *value, const CommandReply &reply)
{
    jobs.remove(json_str(value), [reply] { reply(answer_ok(nullptr)); });
}

void run_list(JobTable &jobs, const struct json *, const CommandReply &reply)
{
    JsonOwner body(json_mkobject()), list(json_mkarray());
    for (const Job &job : jobs.list()) {
        JsonOwner item = job_body(job);
        json_append_str(item.get(), "label", job.label.c_str());
        json_append(list.get(), nullptr, item.release());
    }
    json_append(body.get(), "jobs", list.release());
    reply(answer_ok(std::move(body)));
}

void run_eula(JobTable &, const struct json *value, const CommandReply &reply)
{
    if (std::string_view(json_find_str(value, "action", "")) != "accept")
        return reply(answer_error(EINVAL, "eula: the action is not \"accept\""));
    std::string path;
    if (eula_accept(path) != 0) {
        const int error = errno;
        return reply(answer_error(error, path + ": " + strerror(error)));
    }
    reply(answer_ok(nullptr));
}

struct Command
{
    std::string_view name;
    int value_kind; // of the JSON value that it needs; JSON_NULL: none
    void (*run)(JobTable &jobs, const struct json *value, const CommandReply &reply);
};
constexpr Command COMMANDS[] = {
    {"status", JSON_STRING, run_status}, {"start", JSON_OBJECT, run_start},
    {"remove", JSON_STRING, run_remove}, {"list", JSON_NULL, run_list},
    {"eula", JSON_OBJECT, run_eula},
};

const Command *find_command(std::string_view name)
{
    for (const Command &command : COMMANDS)
        if (command.name == name)
            return &command;
    return nullptr;
}

} // namespace

bool command_wants_json(const char *command)
{
    const Command *found = find_command(command);
    return found && found->value_kind != JSON_NULL;
}

void command_run(JobTable &jobs, const char *command, const struct json *value,
                 const CommandReply &reply)
{
    const Command *found = find_command(command);
    if (!found)
        return reply(answer_error(EINVAL, "unknown command: " + std::string(command)));
    if (found->value_kind != JSON_NULL && json_kind(value) != found->value_kind)
        return reply(answer_error(EINVAL, std::string(command) + (found->value_kind == JSON_STRING
                                                                      ? ": needs a quoted label"
                                                                      : ": needs an object")));
    if (request_is_late(value))
        return reply(answer_error(ETIMEDOUT, std::string(command) +
                                                 ": came too late: its sender has given up"));
    found->run(jobs, value, reply);
}

std::string command_refusal(int error)
{
    return answer_error(error, error == EMSGSIZE ? "the request is too large or too deep"
                                                 : "the request is not a command");
}

int eula_accept(std::string &path)
{
    path = platform_path(PlatformPath::support_dir);
    if (mkdirat_p(AT_FDCWD, path.c_str(), 0755) != 0 && errno != EEXIST)
        return -1;
    path += "/.TarvEulaAccepted";
    // Two windows may accept at once. The answer of OK is for good, so the name is seen to the
    // disk.
    return platform_replace_file(AT_FDCWD, path.c_str(), "", 0644, FileMakers::many);
}
