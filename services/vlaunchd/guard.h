// Looks after the socket file of the launch service.
#pragma once

#include "services/loop/event.h"

#include <functional>
#include <string>

#include <sys/stat.h>

// Told as an event when the file goes or is replaced: a file that is gone is to be made again, and
// a service whose place another has taken has to leave, so that never two serve.
class SocketGuard
{
public:
    struct Changes
    {
        std::function<void()> gone;  // nothing is there
        std::function<void()> taken; // another's socket is there
    };

    // Watches the directory of a socket that exists. False with errno set.
    bool watch(sd_event *event, const std::string &path, Changes changes);
    // The file was made anew by this process.
    void renew();
    // Removes the file, unless it is another's.
    void remove() const;

private:
    enum class Place
    {
        ours,
        gone,
        taken
    };
    Place look() const;

    std::string m_path;
    struct stat m_ours = {};
    Changes m_changes;
    EventSource m_source;
};
