// What the service socket's commands do, and who waits for which answer.
//
// A stop and a suspend are answered when the run has ended, a display when the guest runs: until
// then the connection is kept. A stop that only asks is answered sooner when the guest did not
// power off in its time; the VM runs on then.
#pragma once

#include "services/failure.h"
#include "services/tarvvm/core/run_state.h"
#include "services/tarvvm/core/service.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

enum class StopKind
{
    ask,
    force
};

class Conversation
{
public:
    // Connections of one kind that wait for their answer. Who waits longest makes room for another,
    // and is told so.
    static constexpr size_t WAITING_MAX = 64;

    // What a command asks of the supervisor.
    struct Orders
    {
        std::function<JsonTree()> describe; // the body of a status
        std::function<void(StopKind)> stop;
        std::function<void()> suspend; // the run is suspending already
        std::function<void(std::function<void(const ServiceFailure &)> done)> reboot;
        // As DisplayServer::addViewer.
        std::function<JsonTree(size_t index, int *frame, UniqueFd *channel)> view;
    };

    Conversation(Run &run, Orders orders) : m_run(run), m_orders(std::move(orders)) {}

    void take(std::unique_ptr<ServiceRequest> request);
    // The guest runs: who waits for a screen gets it.
    void guestRuns();
    // The machine goes on, and why it was not suspended.
    void suspendFailed(const ServiceFailure &failure);
    // The guest did not power off within so many seconds, and runs on.
    void stopLapsed(std::chrono::seconds waited);
    // The run is over: everybody who still waits is answered. `message`: how it ended.
    enum class Outcome
    {
        suspended,
        ended
    };
    void end(Outcome outcome, const std::string &message);

private:
    using Requests = std::vector<std::unique_ptr<ServiceRequest>>;

    void stop(std::unique_ptr<ServiceRequest> request);
    void suspend(std::unique_ptr<ServiceRequest> request);
    void reboot(std::unique_ptr<ServiceRequest> request);
    void view(std::unique_ptr<ServiceRequest> request);
    void refuseBusy(ServiceRequest &request) const;
    static void keep(Requests *waiters, std::unique_ptr<ServiceRequest> request);

    Run &m_run;
    Orders m_orders;
    Requests m_stop_waiters, m_force_waiters, m_suspend_waiters, m_view_waiters;
    // Shared with the order that is under way, which may outlive this.
    const std::shared_ptr<Requests> m_reboot_waiters = std::make_shared<Requests>();
};
