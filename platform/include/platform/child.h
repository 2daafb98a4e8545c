// Children of this process: what to run as plain data, and one owner who sees a child to its end.
#pragma once

#include "platform/unique_fd.h"

#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// How long a child may live.
enum class ChildLife
{
    free,
    bound // it is killed when the thread that started it ends; ENOTSUP where the system can't
};

// What a free child has of this thread's blocked and ignored signals. A child that is bound, held
// or keeps descriptors has none of them.
enum class ChildSignals
{
    inherited, // as a shell's children do: what nohup ignores stays ignored
    standard
};

// Descriptors 0 to 2 of the child are those given (-1: /dev/null); none other is inherited but
// those in `kept`.
struct ChildLaunch
{
    std::string program;                     // its path; PATH is not searched
    std::vector<std::string> arguments = {}; // with its own name, the first
    // NAME=value; without it this process's own.
    std::optional<std::vector<std::string>> environment = {};
    int directory = AT_FDCWD; // the directory to run in
    int in = -1, out = -1, err = -1;
    std::vector<int> kept = {}; // more descriptors, above 2, that stay open under their own numbers
    ChildLife life = ChildLife::free;
    ChildSignals signals = ChildSignals::inherited;
    // Signals that the child has blocked; a program of its own mind may unblock them. ENOTSUP for a
    // free child that keeps no descriptors.
    std::vector<int> blocked = {};
    bool new_session = false; // a session of its own, without a terminal
    bool held = false;        // it runs no program before go(); ENOTSUP where the system can't
};

// A child that was started. One that is dropped while it runs is killed and waited for; one that is
// held ends without having done anything, also when this process dies.
class Child
{
public:
    Child() = default;
    Child(Child &&other) noexcept;
    Child &operator=(Child &&other) noexcept;
    ~Child();

    // 0, or -1 with errno set, also when the program could not be run: nothing is left then. The
    // object must have no child yet.
    int start(const ChildLaunch &launch);
    // Lets a held child run its program. 0, or -1 with the errno of its start: it is gone then.
    int go();
    // -1 when there is none, or it was waited for or released.
    pid_t pid() const { return m_pid; }
    // A descriptor that polls readable once the child has ended; it stays open with this
    // object. -1 with errno set.
    int watch();
    void signal(int number) const;
    // Waits for the end; `status` is that of waitpid(2). 0, or -1 with errno set.
    int wait(int *status);
    // The same without waiting. Whether it has ended.
    bool ended(int *status);
    // Lets it run on unwatched; the pid is the caller's to wait for.
    pid_t release();

private:
    void reset();

    pid_t m_pid = -1;
    UniqueFd m_watch;
    UniqueFd m_gate;   // a byte lets a held child go, its end ends it
    UniqueFd m_report; // the errno of a failed start; the end of the stream when it succeeded
};

// The status of waitpid(2) as a shell has it: the exit status, or 128 and the signal.
int child_exit_status(int status);
