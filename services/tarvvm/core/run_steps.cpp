// The supervisor's steps through the table of states: to a running guest, into a saved state, to an
// end. Each begins with the transition that allows it.
#include "services/settings.h"
#include "services/tarvvm/core/supervisor.h"

#include <csignal>
#include <sysexits.h>
#include <utility>

namespace {

constexpr uint64_t START_PATIENCE_MS = 60000;
// What went wrong may be the beginning of the engine's end, which then says more.
constexpr uint64_t KILL_GRACE_MS = 200;
constexpr uint64_t END_PATIENCE_MS = 2000; // of an engine that closed its monitor
// The end of a session leaves 90 s by systemd's default, of which the ladder may take 9.
constexpr uint64_t SESSION_MS = 75000;

} // namespace

// ---- to a running guest -------------------------------------------------------------------------

void Supervisor::onPrepared(VmPreparation prepared)
{
    if (m_run.state() != RunState::starting)
        return; // ended meanwhile
    m_vm = std::move(prepared);
    if (!m_vm.failure) {
        m_vm.failure = startEngine();
        m_vm.status = EX_UNAVAILABLE;
    }
    if (!m_vm.failure)
        return;
    m_run.step(RunEvent::engineEnded);
    fail(m_vm.status, m_vm.failure.text);
    sd_event_exit(m_loop, 0);
}

bool Supervisor::isResuming() const
{
    return m_mode != StartMode::recovery && !m_vm.machine.state_file.empty() && !m_vm.state_used;
}

ServiceFailure Supervisor::startEngine()
{
    auto engine = std::make_unique<Engine>(m_loop, m_vm.machine, m_log, engineHandlers());
    const auto begin = isResuming() ? Engine::Begin::saved : Engine::Begin::cold;
    if (ServiceFailure failure = engine->start(m_vm.host, m_mode, begin))
        return failure;
    m_engine = std::move(engine);
    const std::string &images = m_vm.host.images_dir;
    m_ladder = std::make_unique<Ladder>(m_loop, [this](Rung rung) { act(rung); });
    m_room = std::make_unique<RoomWait>(m_loop, m_run, m_engine->qmp(), m_log);
    m_saved_state = std::make_unique<SavedState>(m_loop, *m_worker, m_record, m_log,
                                                 m_vm.machine.state_file, images);
    m_suspension = std::make_unique<Suspension>(m_engine->migration(), *m_worker, m_record, images,
                                                m_vm.machine.state_file);
    if (m_vm.state_used)
        m_log.line(usedStateNote());
    awaitEngine();
    return {};
}

std::string Supervisor::usedStateNote() const
{
    return "the saved state " + m_vm.machine.state_file +
           " was used by an earlier run, which did not get to removing it: the VM boots afresh";
}

Engine::Handlers Supervisor::engineHandlers()
{
    Engine::Handlers handlers;
    handlers.ready = [this] {
        m_start_deadline.reset();
        if (m_run.state() != RunState::starting)
            return; // a stop came in between
        if (isResuming())
            resume();
        else if (!m_vm.machine.state_file.empty() && !m_vm.state_used)
            useState(); // it boots without it, and the disks change all the same
        else
            release();
    };
    // An engine that is gone says why by its end.
    handlers.failed = [this](const std::string &message) {
        if (!m_engine->qmp().isClosed())
            giveUp(message, KILL_GRACE_MS);
    };
    handlers.event = [this](const std::string &name, const json *data) { onEvent(name, data); };
    // One that lives on without its monitor can't be told anything.
    handlers.closed = [this](const std::string &reason) {
        m_log.line(reason);
        giveUp(reason, END_PATIENCE_MS);
    };
    handlers.ended = [this](const EngineEnd &end) { onEngineEnd(end); };
    return handlers;
}

void Supervisor::awaitEngine()
{
    m_start_deadline = event_timer(m_loop, START_PATIENCE_MS,
                                   [this] { giveUp("the engine does not answer", KILL_GRACE_MS); });
}

// The order of a resume: the state is read into a machine that has its screens and its cables
// already, then the guest is connected to the sizes that came with it. That QEMU has answered
// proves that it lives, so the state is marked as used, and only when the mark is on the disk the
// guest runs. A start that fails before keeps the state, so that it can be repeated.
void Supervisor::resume()
{
    m_run.step(RunEvent::loadBegun);
    m_saved_state->load(m_engine->migration(), [this](const ServiceFailure &failure) {
        if (failure && !m_engine->qmp().isClosed())
            giveUp(failure.text, KILL_GRACE_MS);
        if (failure || m_run.state() != RunState::resuming)
            return;
        m_engine->keepSizes();
        useState();
    });
}

void Supervisor::useState()
{
    m_saved_state->use([this](const ServiceFailure &failure) {
        if (failure)
            giveUp(failure.text, KILL_GRACE_MS);
        else
            release();
    });
}

void Supervisor::release()
{
    if (!m_run.step(RunEvent::machineReady))
        return;
    awaitEngine();
    m_engine->go([this] { onRunning(); });
}

void Supervisor::onRunning()
{
    if (!m_run.step(RunEvent::guestRuns))
        return;
    m_start_deadline.reset();
    m_saved_state->guestRan();
    m_log.line("running, engine's process " + std::to_string(m_engine->process().pid()));
    m_usage.begin(Usage::Clock::now());
    m_saved_state->drop();
    notify("start");
    m_conversation->guestRuns();
}

void Supervisor::onEvent(const std::string &name, const json *data)
{
    if (name == "SHUTDOWN") {
        m_log.line(std::string("the guest is off: ") + json_find_str(data, "reason", "no reason"));
        // The engine ends by itself now; the ladder sees to it that it does.
        force();
    } else if (name == "RESUME") {
        m_saved_state->guestRan();
    } else if (name == "BLOCK_IO_ERROR") {
        m_room->onDiskError(data);
    } else if (name == "GUEST_PANICKED") {
        m_log.line("the guest's system has crashed");
    }
}

// ---- into a saved state -------------------------------------------------------------------------

void Supervisor::suspend()
{
    m_log.line("suspending");
    m_saved_state->forget();
    m_suspension->begin([this](const ServiceFailure &failure) { onSuspension(failure); });
}

void Supervisor::onSuspension(const ServiceFailure &failure)
{
    m_log.line(failure ? "not suspended: " + failure.text : "suspended to " + m_suspension->name());
    if (m_engine_end) {
        conclude(*m_engine_end);
    } else if (!failure) {
        if (m_run.step(RunEvent::stateSaved))
            m_ladder->climbTo(Rung::terminate);
    } else if (!m_engine->qmp().isClosed() && m_run.step(RunEvent::suspendFailed)) {
        m_engine->qmp().execute("cont");
        m_conversation->suspendFailed(failure);
        if (m_session_deadline)
            stop(StopKind::ask); // what else the guest can do in the time that is left
    }
}

// ---- to an end ----------------------------------------------------------------------------------

void Supervisor::stop(StopKind kind)
{
    // A guest that does not run yet can't be asked, and has nothing to lose.
    if (kind == StopKind::force || !run_state_is_up(m_run.state()))
        force();
    else if (m_run.step(RunEvent::stopAsked))
        askToPowerOff();
}

// It is never ended for not doing so: what it has not saved would be lost, and whoever asked can
// still say that it is to be forced.
void Supervisor::askToPowerOff()
{
    m_log.line("asking the guest to power off");
    m_engine->qmp().execute("system_powerdown");
    if (m_stop_deadline)
        return; // whoever asked first is not to wait longer because others ask
    const std::chrono::seconds wait = stop_wait_setting();
    const uint64_t wait_ms = uint64_t(std::chrono::milliseconds(wait).count());
    m_stop_deadline = event_timer(m_loop, wait_ms, [this, wait] { stopLapsed(wait); });
}

void Supervisor::stopLapsed(std::chrono::seconds waited)
{
    m_stop_deadline.reset();
    if (m_run.state() > RunState::stopping)
        return; // it is on its way out
    m_run.step(RunEvent::stopLapsed);
    m_log.line("the guest did not power off and runs on");
    m_conversation->stopLapsed(waited);
}

void Supervisor::stopNow(const std::string &why)
{
    m_log.line(why);
    force();
}

void Supervisor::endOfSession(const std::string &why)
{
    const std::string what = text_setting("at_logout", "suspend");
    m_log.line("the session ends (" + why + "), at_logout: " + what);
    if (what == "force" || !run_state_is_up(m_run.state())) {
        force(); // a guest that does not run yet has its saved state, or has done nothing
        return;
    }
    if (m_session_deadline)
        return;
    m_session_deadline = event_timer(m_loop, SESSION_MS, [this] {
        m_log.line("the session's time is up");
        force();
    });
    if (what == "stop")
        stop(StopKind::ask);
    else if (m_run.step(RunEvent::suspendAsked))
        suspend();
}

void Supervisor::force()
{
    if (!m_run.step(RunEvent::forced))
        return;
    if (m_engine) {
        m_suspension->cancel();
        m_ladder->climbTo(Rung::terminate);
        return;
    }
    // Nothing was started yet, and nothing will be.
    m_run.step(RunEvent::engineEnded);
    sd_event_exit(m_loop, 0);
}

void Supervisor::giveUp(const std::string &message, uint64_t patience_ms)
{
    if (!m_run.step(RunEvent::givenUp, message))
        return; // it is being ended already
    m_suspension->cancel();
    m_ladder->leave(patience_ms);
}

void Supervisor::act(Rung rung)
{
    m_log.line(std::string("stopping: ") + ladder_text(rung));
    switch (rung) {
    case Rung::leave:
        break;
    case Rung::terminate:
        m_engine->qmp().execute("quit");
        break;
    case Rung::signal:
        m_engine->process().signal(SIGINT); // which QEMU takes as SIGTERM, and has not blocked
        break;
    case Rung::kill:
        m_engine->process().signal(SIGKILL);
        break;
    }
}
