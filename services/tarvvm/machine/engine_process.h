// The engine's process: started from a launch description, bound to this process's life.
#pragma once

#include "services/engine/launch.h"
#include "services/loop/event.h"
#include "services/loop/rate.h"
#include "services/tarvvm/machine/vm_log.h"

#include "platform/child.h"

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>

// How the engine ended, in words and as a shell would say it.
struct EngineEnd
{
    int status = 0; // exit status, or 128 + the signal that killed it
    std::string message;
};

class EngineProcess
{
public:
    // The ends of the engine's socket pairs that stay here, and those that it inherits. They are
    // made first, as their numbers stand in the launch description.
    struct Channels
    {
        UniqueFd monitor, console, agent;
        UniqueFd engine_monitor, engine_console, engine_agent;
        // False with errno set.
        bool make();
    };

    // Starts the engine. Null with errno set. `ended` is called once, from the loop, after its
    // last words have been read.
    static std::unique_ptr<EngineProcess> start(sd_event *loop, const Launch &launch,
                                                Channels *channels, VmLog &log,
                                                std::function<void(const EngineEnd &)> ended);
    EngineProcess(const EngineProcess &) = delete;
    EngineProcess &operator=(const EngineProcess &) = delete;

    pid_t pid() const { return m_child.pid(); }
    void signal(int number) { m_child.signal(number); }
    // Processor time that it has used, in milliseconds; -1 when unknown.
    int64_t processorTime() const;

private:
    EngineProcess(sd_event *loop, VmLog &log, std::function<void(const EngineEnd &)> ended);
    void readWords();
    bool readConsole(); // whether there was something
    void pauseConsole();
    void takeWords(std::string_view bytes);
    void onEnd();

    VmLog &m_log;
    std::function<void(const EngineEnd &)> m_ended;
    Child m_child;    // is killed when this goes while it lives
    UniqueFd m_words; // its standard error
    UniqueFd m_console;
    EventSource m_watch_source, m_words_source, m_console_source, m_console_pause;
    Rate m_console_rate;
    sd_event *m_loop;
    std::string m_line;
    std::string m_last_words, m_words_before; // the last line and the one before it
};
