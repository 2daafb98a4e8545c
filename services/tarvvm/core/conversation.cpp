#include "services/tarvvm/core/conversation.h"

#include <cerrno>
#include <cstring>
#include <utility>

void Conversation::take(std::unique_ptr<ServiceRequest> request)
{
    const std::string command(request->command());
    if (command == "status")
        request->answer(m_orders.describe());
    else if (command == "stop")
        stop(std::move(request));
    else if (command == "suspend")
        suspend(std::move(request));
    else if (command == "reboot")
        reboot(std::move(request));
    else if (command == "display")
        view(std::move(request));
    else
        request->fail(EOPNOTSUPP, "unknown command \"" + command + "\"");
}

void Conversation::refuseBusy(ServiceRequest &request) const
{
    request.fail(EBUSY, std::string("the VM is ") + run_state_word(m_run.state()));
}

void Conversation::keep(Requests *waiters, std::unique_ptr<ServiceRequest> request)
{
    waiters->push_back(std::move(request));
    if (waiters->size() <= WAITING_MAX)
        return;
    waiters->front()->fail(EBUSY, "too many requests wait for the VM");
    waiters->erase(waiters->begin());
}

void Conversation::stop(std::unique_ptr<ServiceRequest> request)
{
    const bool force = json_find_bool(request->arguments(), "force", false);
    if (m_run.state() == RunState::suspending && !force) {
        request->fail(EBUSY, "the VM is being suspended");
        return;
    }
    keep(force ? &m_force_waiters : &m_stop_waiters, std::move(request));
    m_orders.stop(force ? StopKind::force : StopKind::ask);
}

void Conversation::stopLapsed(std::chrono::seconds waited)
{
    for (auto &request : std::exchange(m_stop_waiters, {}))
        request->fail(ETIMEDOUT, "the guest did not power off within " +
                                     std::to_string(waited.count()) +
                                     " s; it runs on. Force Stop (stop --force) ends it");
}

void Conversation::suspend(std::unique_ptr<ServiceRequest> request)
{
    // Whoever asked for a stop waits for a guest that powers off.
    if (m_run.state() == RunState::stopping || !m_run.step(RunEvent::suspendAsked)) {
        refuseBusy(*request);
        return;
    }
    keep(&m_suspend_waiters, std::move(request));
    m_orders.suspend();
}

void Conversation::suspendFailed(const ServiceFailure &failure)
{
    for (auto &request : std::exchange(m_suspend_waiters, {}))
        request->fail(EIO, "not suspended, the VM runs on: " + failure.text);
}

void Conversation::reboot(std::unique_ptr<ServiceRequest> request)
{
    const RunState state = m_run.state();
    if (state != RunState::running && state != RunState::waitingForRoom) {
        refuseBusy(*request);
        return;
    }
    // One order serves all who ask until it is done.
    const bool under_way = !m_reboot_waiters->empty();
    keep(m_reboot_waiters.get(), std::move(request));
    if (under_way)
        return;
    m_orders.reboot([waiters = m_reboot_waiters](const ServiceFailure &failure) {
        for (auto &waiting : std::exchange(*waiters, {}))
            if (failure)
                waiting->fail(EIO, failure.text);
            else
                waiting->answer(nullptr);
    });
}

void Conversation::view(std::unique_ptr<ServiceRequest> request)
{
    if (!run_state_is_up(m_run.state())) {
        keep(&m_view_waiters, std::move(request));
        return;
    }
    const int64_t index = json_find_int64(request->arguments(), "index", 0);
    UniqueFd channel;
    int frame = -1;
    errno = ENOENT;
    JsonTree body = index >= 0 ? m_orders.view(size_t(index), &frame, &channel) : nullptr;
    if (!body) {
        const int error = errno;
        request->fail(error,
                      "screen " + std::to_string(index) + ": " +
                          (error == ENOENT ? "there is no such screen" : std::strerror(error)));
        return;
    }
    const int fds[] = {frame, channel.get()};
    request->answer(std::move(body), fds, 2);
}

void Conversation::guestRuns()
{
    for (auto &request : std::exchange(m_view_waiters, {}))
        view(std::move(request));
}

void Conversation::end(Outcome outcome, const std::string &message)
{
    const std::string failure = message.empty() ? "the VM ended" : message;
    for (Requests *waiters : {&m_stop_waiters, &m_force_waiters})
        for (auto &request : std::exchange(*waiters, {}))
            request->answer(nullptr);
    for (auto &request : std::exchange(m_suspend_waiters, {}))
        if (outcome == Outcome::suspended)
            request->answer(nullptr);
        else
            request->fail(ECANCELED, "not suspended: " + failure);
    for (Requests *waiters : {&m_view_waiters, m_reboot_waiters.get()})
        for (auto &request : std::exchange(*waiters, {}))
            request->fail(ECANCELED, failure);
}
