// The launch service's commands: status, start, remove, list, eula.
#pragma once

#include "services/vlaunchd/jobs.h"

#include <functional>
#include <string>

struct json;

// Takes the whole text of an answer, its "\r\n" included.
using CommandReply = std::function<void(std::string answer)>;

// Carries out one request. `reply` is called exactly once, for `remove` perhaps much later.
void command_run(JobTable &jobs, const char *command, const struct json *value,
                 const CommandReply &reply);
// Whether a command has a JSON value behind its line.
bool command_wants_json(const char *command);
// The answer to a request that can't be read (EPROTO, EMSGSIZE).
std::string command_refusal(int error);

// Writes the marker of the accepted agreement into the support directory, which is made when
// missing. 0, or -1 with errno set; `path` gets what it was about.
int eula_accept(std::string &path);
