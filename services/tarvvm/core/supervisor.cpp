#include "services/tarvvm/core/supervisor.h"

#include "hostlib/config/config.h"
#include "services/notify/notify.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr uint64_t START_PATIENCE_MS = 60000;
constexpr uint64_t END_PATIENCE_MS = 2000; // of an engine that closed its monitor
constexpr uint64_t KILL_GRACE_MS = 200;
constexpr uint64_t DISK_RETRY_MS = 5000;
constexpr uint64_t DISK_SETTLED_MS = 1000;
constexpr uint64_t STATE_RETRY_MS = 5000;

std::string log_directory()
{
    const char *path = config_find("log_dir") ? config_get_path("log_dir") : nullptr;
    return path ? path : "";
}

unsigned stop_wait_setting()
{
    const int64_t seconds = config_find("stop_wait") ? config_get_long("stop_wait") : 0;
    return seconds > 0 && seconds <= 3600 ? unsigned(seconds) : 0;
}

// Why the VM's socket can't be made.
std::string socket_trouble(const std::string &path, int error)
{
    struct stat status;
    if (lstat(path.c_str(), &status) == 0 && status.st_uid != getuid())
        return "the path is taken by another user (" + std::to_string(status.st_uid) + ")";
    return error == EADDRINUSE ? "the VM is running already" : std::strerror(error);
}

} // namespace

Supervisor::Supervisor(sd_event *loop, StartMode mode) : m_loop(loop), m_mode(mode) {}

Supervisor::~Supervisor()
{
    if (m_notifier.joinable())
        m_notifier.join();
}

bool Supervisor::fail(int status, const std::string &message)
{
    m_end = {status, message};
    m_log.line(message);
    return false;
}

bool Supervisor::begin(const std::string &id)
{
    std::string error;
    if (!m_record.find(id, &error))
        return fail(EX_NOINPUT, error);
    const std::string path = place_vm_socket(m_record.id());
    m_service = Service::listen(m_loop, path, [this](std::unique_ptr<ServiceRequest> request) {
        handle(std::move(request));
    });
    if (!m_service)
        return fail(EX_CANTCREAT, path + ": " + socket_trouble(path, errno));
    const std::string directory = log_directory();
    if (!directory.empty() && !m_log.openFile(directory, m_record.id()))
        m_log.line(directory + ": no log file: " + std::strerror(errno));
    int status = 0;
    if (!m_record.prepare(&error, &status))
        return fail(status, error);
    if (!startEngine(&error))
        return fail(EX_UNAVAILABLE, error);
    return true;
}

bool Supervisor::startEngine(std::string *error)
{
    EngineProcess::Channels channels;
    if (!channels.make()) {
        *error = std::string("the engine's channels: ") + std::strerror(errno);
        return false;
    }
    m_resuming = !m_record.machine().state_file.empty() && m_mode != StartMode::recovery;
    const LaunchOptions options{m_mode, channels.engine_monitor.get(),
                                channels.engine_console.get(), channels.engine_agent.get(),
                                m_resuming};
    UniqueFd agent_unread(fcntl(channels.engine_agent.get(), F_DUPFD_CLOEXEC, 0));
    const Launch launch = engine_launch(m_record.machine(), m_record.host(), options);
    m_log.line("starting " + engine_launch_line(launch));
    m_engine = EngineProcess::start(m_loop, launch, &channels, m_log,
                                    [this](const EngineEnd &end) { onEngineEnd(end); });
    if (!m_engine) {
        *error = launch.program + ": " + std::strerror(errno);
        return false;
    }
    Qmp::Handlers handlers;
    handlers.ready = [this] { onQmpReady(); };
    handlers.event = [this](const std::string &name, const json *data) { onQmpEvent(name, data); };
    handlers.closed = [this](const std::string &reason) { onQmpClosed(reason); };
    m_qmp = std::make_unique<Qmp>(m_loop, std::move(channels.monitor), std::move(handlers));
    m_pasteboard = std::make_unique<GuestPasteboard>(
        m_loop, std::move(channels.agent), std::move(agent_unread),
        [this](const std::string &line) { m_log.line(line); });
    m_stopper = std::make_unique<Stopper>(m_loop, stop_wait_setting(),
                                          [this](StopRung rung) { climb(rung); });
    m_suspender = std::make_unique<Suspender>(m_loop, *m_qmp, m_record.host().images_dir);
    m_suspender->sweep(m_record.id()); // the socket is ours: nobody else is writing one
    m_record.sweepStates();
    awaitEngine();
    return true;
}

void Supervisor::awaitEngine()
{
    m_start_deadline = event_timer(m_loop, START_PATIENCE_MS, [this] {
        if (m_state == VmState::starting) // else the ladder of a stop is at work
            failStart("the engine does not answer");
    });
}

// ---- the way to a running guest -----------------------------------------------------------------

void Supervisor::onQmpReady()
{
    m_displays =
        std::make_unique<DisplayServer>(m_loop, m_record.machine(), *m_pasteboard,
                                        [this](const std::string &line) { m_log.line(line); });
    const auto begin = m_resuming ? DisplayServer::Begin::saved : DisplayServer::Begin::configured;
    m_displays->start(*m_qmp, begin, [this](const std::string &error) { onScreens(error); });
}

void Supervisor::onScreens(const std::string &error)
{
    m_start_deadline.reset();
    if (!error.empty()) {
        failStart("the engine's display: " + error);
        return;
    }
    if (m_state != VmState::starting)
        return; // a stop came in between
    unplugCables();
    if (m_resuming)
        resume();
    else
        letRun();
}

void Supervisor::unplugCables()
{
    const std::vector<MachineNetwork> &networks = m_record.machine().networks;
    for (size_t i = 0; i < networks.size(); i++) {
        if (networks[i].mode != NetworkMode::disconnected)
            continue;
        JsonTree link(json_mkobject());
        json_append_str(link.get(), "name", ("nic" + std::to_string(i)).c_str());
        json_append_bool(link.get(), "up", false);
        m_qmp->execute("set_link", std::move(link),
                       [this](const json *done, const std::string &why) {
                           if (!done)
                               m_log.line("a network card can't be disconnected: " + why);
                       });
    }
}

void Supervisor::resume()
{
    const std::string &state = m_record.machine().state_file;
    m_log.line("resuming from " + state);
    m_loading = true;
    m_suspender->load(state, [this](const std::string &, const std::string &error) {
        if (!error.empty()) {
            failStart(error);
            return;
        }
        m_loading = false;
        m_displays->keepSizes();
        letRun();
    });
}

void Supervisor::letRun()
{
    if (m_state != VmState::starting)
        return;
    awaitEngine();
    m_qmp->execute("cont", [this](const json *result, const std::string &error) {
        if (result)
            onRunning();
        else
            failStart("the guest can't run: " + error);
    });
}

void Supervisor::onRunning()
{
    if (!step(VmEvent::guestRuns))
        return;
    m_start_deadline.reset();
    m_log.line("running, engine's process " + std::to_string(m_engine->pid()));
    m_running_since = m_sampled = Clock::now();
    dropState();
    notify("start");
    for (auto &request : std::exchange(m_display_waiters, {}))
        handleDisplay(std::move(request));
}

// Once the guest runs the disks differ from what the state was saved with.
void Supervisor::dropState()
{
    if (m_record.machine().state_file.empty())
        return;
    if (m_record.removeState())
        return;
    m_log.line("the record still names the saved state; it is tried again");
    m_state_retry = event_timer(m_loop, STATE_RETRY_MS, [this] { dropState(); });
}

// An engine that is gone says why by its end.
void Supervisor::failStart(const std::string &message)
{
    if (!m_qmp->isClosed())
        giveUp(message);
}

// What went wrong may be the beginning of the engine's end, which then says more.
void Supervisor::giveUp(const std::string &message)
{
    if (m_failure.empty())
        m_failure = message;
    m_end_deadline = event_timer(m_loop, KILL_GRACE_MS, [this] {
        m_killed = true;
        m_engine->signal(SIGKILL);
    });
}

// ---- states and their end -----------------------------------------------------------------------

bool Supervisor::step(VmEvent event)
{
    const std::optional<VmState> next = vm_state_next(m_state, event);
    if (next)
        m_state = *next;
    return next.has_value();
}

void Supervisor::onQmpEvent(const std::string &name, const json *data)
{
    if (name == "SHUTDOWN") {
        m_log.line(std::string("the guest is off: ") + json_find_str(data, "reason", "no reason"));
        // The engine ends by itself now; the ladder sees to it that it does.
        stop(StopKind::force);
    } else if (name == "BLOCK_IO_ERROR") {
        onDiskError(data);
    } else if (name == "GUEST_PANICKED") {
        m_log.line("the guest's system has crashed");
    } else if (name == "VSERPORT_CHANGE") {
        m_pasteboard->setPortOpen(json_find_bool(data, "open", false)); // the only port
    }
}

// As a rule the engine is ending. One that lives on without its monitor can't be told anything.
void Supervisor::onQmpClosed(const std::string &reason)
{
    m_log.line(reason);
    m_end_deadline = event_timer(m_loop, END_PATIENCE_MS, [this, reason] {
        if (m_state != VmState::stopping) // else the ladder is at work
            giveUp(reason);
    });
}

// QEMU pauses a guest whose disk finds no room. It tries again until there is some.
void Supervisor::onDiskError(const json *data)
{
    const bool paused = std::string_view(json_find_str(data, "action", "")) == "stop";
    std::string trouble = std::string("disk ") + json_find_str(data, "device", "") + ": " +
                          json_find_str(data, "reason", "input or output error");
    if (paused)
        trouble += ": the guest waits";
    if (trouble != m_notice) // told once, however often it is tried
        m_log.line(trouble);
    if (!paused)
        return;
    m_notice = trouble;
    m_disk_settled.reset();
    m_disk_retry = event_timer(m_loop, DISK_RETRY_MS, [this] {
        if (m_state == VmState::running)
            letGoOn();
    });
}

void Supervisor::letGoOn()
{
    m_qmp->execute("cont");
    if (m_notice.empty())
        return;
    m_disk_settled = event_timer(m_loop, DISK_SETTLED_MS, [this] {
        m_log.line("there is room on the disk again: the guest goes on");
        m_notice.clear();
    });
}

void Supervisor::stop(StopKind kind)
{
    // A guest that does not run yet can't be asked.
    const bool running = m_state != VmState::starting;
    step(VmEvent::stopAsked);
    m_suspender->cancel();
    m_stopper->begin(running ? kind : StopKind::force);
}

void Supervisor::climb(StopRung rung)
{
    m_log.line(std::string("stopping: ") + stop_rung_text(rung));
    switch (rung) {
    case StopRung::ask:
        m_qmp->execute("system_powerdown");
        break;
    case StopRung::terminate:
        m_qmp->execute("quit");
        break;
    case StopRung::signal:
        m_engine->signal(SIGTERM);
        break;
    case StopRung::kill:
        m_engine->signal(SIGKILL);
        break;
    }
}

void Supervisor::stopNow(const std::string &why)
{
    m_log.line(why);
    if (m_stopper)
        stop(StopKind::force);
}

void Supervisor::onEngineEnd(const EngineEnd &end)
{
    const VmState before = m_state;
    step(VmEvent::engineEnded);
    const std::string failure = failureOf(before, end);
    if (failure.empty())
        m_log.line("ended");
    else
        fail(EX_SOFTWARE, failure);
    sd_event_exit(m_loop, 0);
}

// Why the engine ended, unless that was asked for.
std::string Supervisor::failureOf(VmState before, const EngineEnd &end) const
{
    std::string failure = m_killed || end.status == 0 ? m_failure : "";
    if (failure.empty() && before != VmState::stopping && end.status != 0)
        failure = end.message;
    else if (failure.empty() && before == VmState::starting)
        failure = "the engine ended before the guest ran";
    if (failure.empty() || before != VmState::starting || !m_resuming)
        return failure;
    if (m_loading)
        failure =
            "the saved state " + m_record.machine().state_file + " can't be resumed: " + failure;
    return failure + " (the saved state is kept; tarvctl start --recovery boots without it)";
}

void Supervisor::finish(const std::function<void()> &report)
{
    if (m_displays)
        m_displays->close(DISPLAY_CLOSE_STOPPED);
    const bool was_bound = m_service != nullptr;
    m_service.reset();
    report();
    if (was_bound)
        notify("stop");
    if (m_notifier.joinable())
        m_notifier.join();
    // Last of all: who waits for the end may start the VM anew at once.
    answerWaiters();
}

void Supervisor::answerWaiters()
{
    for (auto &request : m_stop_waiters)
        request->answer(nullptr);
    const std::string failure = m_end.message.empty() ? "the VM ended" : m_end.message;
    for (auto &request : m_suspend_waiters)
        if (m_saved)
            request->answer(nullptr);
        else
            request->fail(ECANCELED, "not suspended: " + failure);
    for (auto &request : m_display_waiters)
        request->fail(ECANCELED, failure);
}

void Supervisor::notify(const char *member)
{
    if (m_notifier.joinable())
        m_notifier.join();
    // A bus that is slow to answer must not hold up the guest's screens.
    m_notifier = std::thread([member, id = m_record.id()] { notify_post(member, id.c_str()); });
}
