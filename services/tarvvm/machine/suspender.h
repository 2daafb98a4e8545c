// Saves the running machine into a file of the image library, and loads it from one.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/machine/qmp.h"

#include "platform/unique_fd.h"

#include <functional>
#include <string>
#include <vector>

// The saved states of a VM in the image library, whether or not anything names them.
std::vector<std::string> state_names(const std::string &directory, const std::string &id);

class Suspender
{
public:
    // An empty error is success. `name` is the state's file name in the image library.
    using Done = std::function<void(const std::string &name, const std::string &error)>;

    // `directory` is the image library.
    Suspender(sd_event *loop, Qmp &qmp, std::string directory);
    ~Suspender(); // drops a file that was not finished
    Suspender(const Suspender &) = delete;
    Suspender &operator=(const Suspender &) = delete;

    // Halts the machine and saves it under a temporary name; only a state that is safe on the disk
    // gets its name "<id>-<time>.state". After a failure the machine runs on.
    void save(const std::string &id, Done done);
    // Gives up; the unfinished file is removed and the machine stays halted.
    void cancel();
    // Removes what an earlier supervisor of this VM was killed over.
    void sweep(const std::string &id);
    // Removes a state that was saved but could not be recorded.
    void discard(const std::string &name);
    // Loads a state into a machine that waits for one. A failure may come as QEMU's end instead.
    void load(const std::string &name, Done done);

private:
    void migrate(const char *command);
    void poll(bool saving);
    void judge(bool saving, const json *result, const std::string &error);
    void finishSave();
    void finish(const std::string &error);
    void dropUnfinished();

    sd_event *m_loop;
    Qmp &m_qmp;
    std::string m_directory;
    std::string m_name;      // that the state gets
    std::string m_temporary; // path while it is written; empty once renamed
    UniqueFd m_file;
    EventSource m_poll;
    Done m_done;
};
