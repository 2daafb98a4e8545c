#include "services/tarvvm/core/supervisor.h"

#include "hostlib/config/config.h"
#include "services/notify/notify.h"
#include "services/tarvvm/core/verdict.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>
#include <utility>

namespace {

// At the end: for what is still on its way to the disk, and to the session's bus.
constexpr std::chrono::milliseconds DISK_PATIENCE{5000}, BUS_PATIENCE{3000};

std::string log_directory()
{
    const char *path = config_find("log_dir") ? config_get_path("log_dir") : nullptr;
    return path ? path : "";
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

bool Supervisor::fail(int status, const std::string &message)
{
    m_end = {status, message};
    m_log.line(message);
    return false;
}

bool Supervisor::begin(const std::string &id)
{
    if (const ServiceFailure failure = m_record->find(id))
        return fail(EX_NOINPUT, failure.text);
    if (!bindSocket() || !startWorkers())
        return false;
    const std::string directory = log_directory();
    if (!directory.empty() && !m_log.openFile(directory, m_record->id()))
        m_log.line(directory + ": no log file: " + std::strerror(errno));
    m_worker->run([record = m_record] { return record->prepare(); },
                  [this](VmPreparation prepared) { onPrepared(std::move(prepared)); });
    return true;
}

// The socket comes before the record is read: whoever holds it is this VM's only supervisor, which
// is what lets it clear up after an earlier one.
bool Supervisor::bindSocket()
{
    const std::string path = place_vm_socket(m_record->id());
    m_conversation = std::make_unique<Conversation>(m_run, orders());
    m_service = Service::listen(m_loop, path, [this](std::unique_ptr<ServiceRequest> request) {
        m_conversation->take(std::move(request));
    });
    return m_service ? true : fail(EX_CANTCREAT, path + ": " + socket_trouble(path, errno));
}

bool Supervisor::startWorkers()
{
    m_worker = Worker::start(m_loop);
    m_bus_worker = m_worker ? Worker::start(m_loop) : nullptr;
    if (m_bus_worker)
        m_service->guard(*m_bus_worker);
    return m_bus_worker ? true : fail(EX_OSERR, std::string("a thread: ") + std::strerror(errno));
}

Conversation::Orders Supervisor::orders()
{
    Conversation::Orders orders;
    orders.describe = [this] { return describe(); };
    orders.stop = [this](StopKind kind) { stop(kind); };
    orders.suspend = [this] { suspend(); };
    orders.reboot = [this](std::function<void(const ServiceFailure &)> done) {
        m_engine->qmp().execute(
            "system_reset", [done = std::move(done)](const json *result, const std::string &why) {
                done(result ? ServiceFailure() : ServiceFailure{EIO, why});
            });
    };
    orders.view = [this](size_t index, int *frame, UniqueFd *channel) {
        DisplayServer *displays = m_engine ? m_engine->displays() : nullptr;
        return displays ? displays->addViewer(index, frame, channel) : nullptr;
    };
    return orders;
}

JsonTree Supervisor::describe()
{
    JsonTree body(json_mkobject());
    const auto now = Usage::Clock::now();
    const int64_t used = m_engine ? m_engine->process().processorTime() : -1;
    json_append_int64(body.get(), "pid", getpid());
    json_append_str(body.get(), "state", run_state_word(m_run.state()));
    json_append_str(body.get(), "name", m_vm.machine.name.c_str());
    json_append_int64(body.get(), "cpu", m_usage.share(now, used));
    json_append_int64(body.get(), "uptime", m_usage.uptime(now));
    json_append_int64(body.get(), "engine_pid", m_engine ? m_engine->process().pid() : -1);
    if (m_run.state() == RunState::waitingForRoom)
        json_append_str(body.get(), "notice", m_run.reason().c_str());
    if (const auto progress = m_suspension ? m_suspension->progress() : std::nullopt)
        json_append_int64(body.get(), "progress", *progress);
    if (m_vm.state_used)
        json_append_str(body.get(), "note", usedStateNote().c_str());
    const DisplayServer *displays = m_engine ? m_engine->displays() : nullptr;
    JsonTree screens = displays ? displays->describe() : JsonTree(json_mkarray());
    json_append(body.get(), "displays", screens.release());
    return body;
}

void Supervisor::notify(const char *member)
{
    m_bus_worker->post([member, id = m_record->id()] { notify_post(member, id.c_str()); }, nullptr);
}

// ---- the end ------------------------------------------------------------------------------------

// What the disk still has to do is waited for, so that what everybody is told is what the record
// says. A state that is whole is recorded without the engine. And where QEMU has gone without
// having said that the guest runs, which it says before the first instruction, the guest provably
// never ran: the mark of the state that it was to go on from is taken back.
void Supervisor::onEngineEnd(const EngineEnd &end)
{
    const bool unspent = m_saved_state->isUnspent();
    if (!m_suspension->isRecording() && !unspent) {
        conclude(end);
        return;
    }
    m_engine_end = end;
    m_record_deadline =
        event_timer(m_loop, uint64_t(DISK_PATIENCE.count()), [this] { conclude(*m_engine_end); });
    if (unspent)
        m_saved_state->takeBack([this](const ServiceFailure &failure) {
            if (failure)
                m_log.line("the saved state stays marked as used: " + failure.text);
            conclude(*m_engine_end);
        });
}

void Supervisor::conclude(const EngineEnd &end)
{
    if (m_run.state() == RunState::ended)
        return; // the record was waited for long enough
    const std::string failure =
        run_verdict({m_run, end, m_ladder->reached() == Rung::kill, m_suspension->isRecorded(),
                     isResuming() ? m_vm.machine.state_file : "", m_saved_state->isSpent()});
    m_run.step(RunEvent::engineEnded);
    if (failure.empty())
        m_log.line("ended");
    else
        fail(EX_SOFTWARE, failure);
    sd_event_exit(m_loop, 0);
}

bool Supervisor::finish(const std::function<void()> &report)
{
    if (m_engine && m_engine->displays())
        m_engine->displays()->close(DISPLAY_CLOSE_STOPPED);
    const bool through = !m_worker || m_worker->finish(DISK_PATIENCE);
    if (!through)
        m_log.line("the record or a file is locked by another program; it is left as it is");
    const bool was_bound = m_service != nullptr;
    m_service.reset();
    report();
    if (was_bound && m_bus_worker) {
        notify("stop");
        m_bus_worker->finish(BUS_PATIENCE);
    }
    // Last of all: who waits for the end may start the VM anew at once.
    const bool suspended = m_suspension && m_suspension->isRecorded();
    if (m_conversation)
        m_conversation->end(suspended ? Conversation::Outcome::suspended
                                      : Conversation::Outcome::ended,
                            m_end.message);
    return through;
}
