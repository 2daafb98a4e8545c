// What the service socket's commands do.
#include "services/tarvvm/core/supervisor.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

void Supervisor::handle(std::unique_ptr<ServiceRequest> request)
{
    const std::string &command = request->command();
    if (command == "status")
        request->answer(describe());
    else if (command == "stop")
        handleStop(std::move(request));
    else if (command == "suspend")
        handleSuspend(std::move(request));
    else if (command == "reboot")
        handleReboot(std::move(request));
    else if (command == "display")
        handleDisplay(std::move(request));
    else
        request->fail(EOPNOTSUPP, "unknown command \"" + command + "\"");
}

JsonTree Supervisor::describe()
{
    JsonTree body(json_mkobject());
    json_append_int64(body.get(), "pid", getpid());
    json_append_str(body.get(), "state", vm_state_name(m_state));
    json_append_str(body.get(), "name", m_record.machine().name.c_str());
    json_append_int64(body.get(), "cpu", processorShare());
    const int64_t uptime =
        m_running_since
            ? std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *m_running_since)
                  .count()
            : 0;
    json_append_int64(body.get(), "uptime", uptime);
    json_append_int64(body.get(), "engine_pid", m_engine ? m_engine->pid() : -1);
    if (!m_notice.empty())
        json_append_str(body.get(), "notice", m_notice.c_str());
    JsonTree displays = m_displays ? m_displays->describe() : JsonTree(json_mkarray());
    json_append(body.get(), "displays", displays.release());
    return body;
}

// Percent of one processor, over the time since the last status that was at least a second ago.
int64_t Supervisor::processorShare()
{
    const int64_t used = m_engine ? m_engine->processorTime() : -1;
    const auto now = Clock::now();
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(now - m_sampled).count();
    if (used < 0 || !m_running_since || elapsed < 1000)
        return m_share;
    m_share = (used - m_sampled_time) * 100 / elapsed;
    m_sampled = now;
    m_sampled_time = used;
    return m_share;
}

void Supervisor::handleStop(std::unique_ptr<ServiceRequest> request)
{
    const bool force = json_find_bool(request->arguments(), "force", false);
    if (m_state == VmState::suspending && !force) {
        request->fail(EBUSY, "the VM is being suspended");
        return;
    }
    m_stop_waiters.push_back(std::move(request));
    if (m_stopper)
        stop(force ? StopKind::force : StopKind::ask);
}

void Supervisor::handleSuspend(std::unique_ptr<ServiceRequest> request)
{
    if (!step(VmEvent::suspendAsked)) {
        request->fail(EBUSY, std::string("the VM is ") + vm_state_name(m_state));
        return;
    }
    m_log.line("suspending");
    m_suspend_waiters.push_back(std::move(request));
    m_suspender->save(m_record.id(), [this](const std::string &name, const std::string &error) {
        onSaved(name, error);
    });
}

void Supervisor::onSaved(const std::string &name, const std::string &error)
{
    std::string failure = error;
    if (failure.empty() && !m_record.writeState(name)) {
        failure = std::string("the state can't be recorded: ") + std::strerror(errno);
        m_suspender->discard(name);
    }
    if (failure.empty()) {
        m_log.line("suspended to " + name);
        m_saved = true;
        step(VmEvent::stateSaved);
        m_stopper->begin(StopKind::force);
        return;
    }
    m_log.line("not suspended: " + failure);
    if (m_qmp->isClosed())
        return; // it does not run on: its end answers
    step(VmEvent::suspendFailed);
    letGoOn();
    for (auto &request : std::exchange(m_suspend_waiters, {}))
        request->fail(EIO, "not suspended, the VM runs on: " + failure);
}

void Supervisor::handleReboot(std::unique_ptr<ServiceRequest> request)
{
    if (m_state != VmState::running) {
        request->fail(EBUSY, std::string("the VM is ") + vm_state_name(m_state));
        return;
    }
    const std::shared_ptr<ServiceRequest> waiting = std::move(request);
    m_qmp->execute("system_reset", [waiting](const json *result, const std::string &error) {
        if (result)
            waiting->answer(nullptr);
        else
            waiting->fail(EIO, error);
    });
}

void Supervisor::handleDisplay(std::unique_ptr<ServiceRequest> request)
{
    if (m_state == VmState::starting) {
        m_display_waiters.push_back(std::move(request));
        return;
    }
    const int64_t index = json_find_int64(request->arguments(), "index", 0);
    UniqueFd channel;
    int frame = -1;
    JsonTree body =
        index >= 0 && m_displays ? m_displays->addViewer(size_t(index), &frame, &channel) : nullptr;
    if (!body) {
        request->fail(errno,
                      "screen " + std::to_string(index) + ": " +
                          (errno == ENOENT ? "there is no such screen" : std::strerror(errno)));
        return;
    }
    const int fds[] = {frame, channel.get()};
    request->answer(std::move(body), fds, 2);
}
