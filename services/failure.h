// Why something did not work, on its way to whoever tells people.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>

// A reason for programs and a sentence for people. The text names the file, key or peer concerned
// and is never empty in a failure; without one there was none. The message that a user reads is
// made where it is read, around this text.
struct ServiceFailure
{
    int error = 0; // an errno value; 0 where no system call failed
    std::string text;

    explicit operator bool() const { return !text.empty(); }

    // "<subject>: <the system's words for the error>".
    static ServiceFailure of(const std::string &subject, int error)
    {
        return {error, subject + ": " + std::strerror(error)};
    }
    // The same for the errno of the call that has just failed.
    static ServiceFailure of(const std::string &subject) { return of(subject, errno); }
};
