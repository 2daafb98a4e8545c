// What a command answers, and how it is printed for people and for programs.
#pragma once

#include "tarvhv/cli2/exit_status.h"

#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

using Json = nlohmann::json;

// Exit statuses of the controller.
enum class ExitStatus : int
{
    ok = 0,
    failed = 1,                  // the operation failed
    usage = 2,                   // wrong arguments
    not_found = 3,               // no such VM
    state = 4,                   // the VM is not in a state that allows it
    exists = 5,                  // the name is taken
    input = 6,                   // an image, size or value can't be used
    space = 7,                   // no space on the disk
    service = 8,                 // the launch service or a supervisor can't be asked
    cancelled = 9,               // by SIGTERM or SIGINT
    guest = EXIT_GUEST_STAYS_ON, // the guest did not do as it was asked; the VM runs on
};

// Ends a command with an exit status and a message for the user.
class Failure : public std::runtime_error
{
public:
    Failure(ExitStatus status, const std::string &message)
        : std::runtime_error(message), m_status(status)
    {
    }
    ExitStatus status() const { return m_status; }

private:
    ExitStatus m_status;
};

// What an errno of a system call, or of a service's answer, is for whoever reads exit statuses.
ExitStatus exit_status_of(int error);
// A failure of a system call: "<what>: <error text>"; ENOSPC and EDQUOT are ExitStatus::space.
Failure system_failure(const std::string &what, int error);

// NOLINTNEXTLINE(bugprone-exception-escape): Json moves without exceptions; the check looks inside.
struct Answer
{
    ExitStatus status = ExitStatus::ok;
    std::string message = {}; // what failed; of a success what is worth saying, or ""
    Json body = nullptr;      // for programs
    std::string text = {};    // for people; whole lines
};

// Prints it: with `machine` one JSON object on standard output, else its text there and a failure's
// message on standard error. The number to exit with.
int print_answer(const Answer &answer, bool machine);
