// Supervises one VM from its start to its end: runs the engine, answers on the service socket.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/core/record.h"
#include "services/tarvvm/core/service.h"
#include "services/tarvvm/core/state.h"
#include "services/tarvvm/core/stopper.h"
#include "services/tarvvm/machine/engine_process.h"
#include "services/tarvvm/machine/qmp.h"
#include "services/tarvvm/machine/suspender.h"
#include "services/tarvvm/machine/vm_log.h"
#include "services/tarvvm/pasteboard/guest_pasteboard.h"
#include "services/tarvvm/screens/display_server.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

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
    ~Supervisor();
    Supervisor(const Supervisor &) = delete;
    Supervisor &operator=(const Supervisor &) = delete;

    // Binds the socket and starts the engine. False when it came to nothing: end() says why. The
    // loop is told to exit when the VM has ended.
    bool begin(const std::string &id);
    // Ends the VM by force, as a signal asks.
    void stopNow(const std::string &why);
    // Takes everything down: viewers, socket, waiting requests; then tells the session's bus.
    void finish(const std::function<void()> &report);
    const SupervisorEnd &end() const { return m_end; }

private:
    using Requests = std::vector<std::unique_ptr<ServiceRequest>>;

    bool fail(int status, const std::string &message);
    bool startEngine(std::string *error);
    void awaitEngine();
    void onQmpReady();
    void onQmpEvent(const std::string &name, const json *data);
    void onScreens(const std::string &error);
    void onQmpClosed(const std::string &reason);
    void onDiskError(const json *data);
    void letGoOn();
    void dropState();
    void unplugCables();
    void resume();
    void letRun();
    void onRunning();
    void failStart(const std::string &message);
    void giveUp(const std::string &message);
    void onEngineEnd(const EngineEnd &end);
    std::string failureOf(VmState before, const EngineEnd &end) const;

    bool step(VmEvent event);
    void stop(StopKind kind);
    void climb(StopRung rung);
    void onSaved(const std::string &name, const std::string &error);

    void handle(std::unique_ptr<ServiceRequest> request);
    void handleStop(std::unique_ptr<ServiceRequest> request);
    void handleSuspend(std::unique_ptr<ServiceRequest> request);
    void handleReboot(std::unique_ptr<ServiceRequest> request);
    void handleDisplay(std::unique_ptr<ServiceRequest> request);
    void answerWaiters();
    JsonTree describe();
    int64_t processorShare();
    void notify(const char *member);

    sd_event *m_loop;
    StartMode m_mode;
    VmLog m_log;
    VmRecord m_record;
    SupervisorEnd m_end;
    VmState m_state = VmState::starting;
    bool m_resuming = false;
    bool m_loading = false; // the saved state is on its way into the engine
    bool m_saved = false;   // suspended: the state is recorded
    std::string m_failure;  // why the engine was given up, while it is being ended
    bool m_killed = false;  // for that
    std::string m_notice;   // what keeps a running guest from going on; empty as a rule

    std::unique_ptr<Service> m_service;
    std::unique_ptr<EngineProcess> m_engine;
    std::unique_ptr<Qmp> m_qmp;
    std::unique_ptr<GuestPasteboard> m_pasteboard; // outlives the screens' viewers
    std::unique_ptr<DisplayServer> m_displays;
    std::unique_ptr<Suspender> m_suspender;
    std::unique_ptr<Stopper> m_stopper;
    EventSource m_start_deadline, m_end_deadline;
    EventSource m_disk_retry, m_disk_settled, m_state_retry;
    Requests m_stop_waiters, m_suspend_waiters, m_display_waiters;

    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> m_running_since;
    Clock::time_point m_sampled;
    int64_t m_sampled_time = 0; // processor milliseconds at that moment
    int64_t m_share = 0;        // percent of one processor
    std::thread m_notifier;
};
