// Supervises one VM from its start to its end: decides what becomes of the engine, and answers on
// the service socket.
//
// What a killed supervisor leaves behind: no engine (it is bound to this process's life), a socket
// file that refuses connections, at most one unfinished state file, and a record that says what was
// last made durable. The next supervisor of the VM takes the socket's place and clears up the rest;
// it needs no word from this one.
#pragma once

#include "services/failure.h"
#include "services/loop/event.h"
#include "services/loop/worker.h"
#include "services/tarvvm/core/conversation.h"
#include "services/tarvvm/core/engine.h"
#include "services/tarvvm/core/ladder.h"
#include "services/tarvvm/core/record.h"
#include "services/tarvvm/core/room.h"
#include "services/tarvvm/core/run_state.h"
#include "services/tarvvm/core/saved_state.h"
#include "services/tarvvm/core/service.h"
#include "services/tarvvm/core/suspension.h"
#include "services/tarvvm/core/usage.h"
#include "services/tarvvm/machine/vm_log.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// How the supervision ended: the exit status of the program and a sentence for people.
struct SupervisorEnd
{
    int status = 0;
    std::string message;
};

class Supervisor
{
public:
    Supervisor(sd_event *loop, StartMode mode);
    Supervisor(const Supervisor &) = delete;
    Supervisor &operator=(const Supervisor &) = delete;

    // Binds the socket and has the record read; the engine is started from the loop. False when it
    // came to nothing: end() says why. The loop is told to exit when the VM has ended.
    bool begin(const std::string &id);
    // Ends the VM by force, as a signal asks.
    void stopNow(const std::string &why);
    // The session ends (log-out, shutdown): what the setting "at_logout" says becomes of the guest,
    // within the time that a session's end leaves.
    void endOfSession(const std::string &why);
    // Takes everything down: viewers, socket, waiting requests; then tells the session's bus.
    // `report` is called when a new supervisor could bind the socket, before anybody is answered.
    // False when a call is stuck in a lock that a stranger holds: the process is to end at once,
    // without its destructors.
    bool finish(const std::function<void()> &report);
    const SupervisorEnd &end() const { return m_end; }

private:
    bool fail(int status, const std::string &message);
    bool startWorkers();
    bool bindSocket();
    Conversation::Orders orders();
    JsonTree describe();
    void notify(const char *member);

    void onPrepared(VmPreparation prepared);
    ServiceFailure startEngine();
    Engine::Handlers engineHandlers();
    void awaitEngine();
    bool isResuming() const;
    std::string usedStateNote() const;
    void resume();
    void useState();
    void release();
    void onRunning();
    void onEvent(const std::string &name, const json *data);

    void suspend();
    void onSuspension(const ServiceFailure &failure);
    void stop(StopKind kind);
    void askToPowerOff();
    void stopLapsed(std::chrono::seconds waited);
    void force();
    void giveUp(const std::string &message, uint64_t patience_ms);
    void act(Rung rung);
    void onEngineEnd(const EngineEnd &end);
    void conclude(const EngineEnd &end);

    sd_event *m_loop;
    StartMode m_mode;
    VmLog m_log;
    Run m_run;
    Usage m_usage;
    SupervisorEnd m_end;
    std::shared_ptr<VmRecord> m_record = std::make_shared<VmRecord>();
    VmPreparation m_vm; // as the record and the host were when the run began

    std::unique_ptr<Conversation> m_conversation;
    std::unique_ptr<Service> m_service;
    std::unique_ptr<Engine> m_engine;
    std::unique_ptr<Ladder> m_ladder;
    std::unique_ptr<RoomWait> m_room;
    // The record and the files of states are the worker's alone, in the order in which they are
    // given; the session's bus, which may stay silent for seconds, has one of its own.
    std::unique_ptr<Worker> m_worker, m_bus_worker;
    std::unique_ptr<SavedState> m_saved_state;
    std::unique_ptr<Suspension> m_suspension;
    EventSource m_start_deadline, m_stop_deadline, m_record_deadline, m_session_deadline;
    std::optional<EngineEnd> m_engine_end; // while a state or its mark is on its way to the disk
};
