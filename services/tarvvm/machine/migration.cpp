#include "services/tarvvm/machine/migration.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr const char *FD_NAME = "state";
constexpr int64_t BANDWIDTH = int64_t{1} << 50; // bytes a second: as fast as it goes
constexpr uint64_t POLL_MS = 50;

} // namespace

// The machine is halted first. Otherwise QEMU would write memory again and again while the guest
// changes it, and the disks would go on changing behind the state.
void Migration::save(int file, Done done)
{
    m_qmp.execute("stop");
    m_progress = 0;
    begin("migrate", file, std::move(done));
}

void Migration::load(int file, Done done)
{
    m_file.reset(fcntl(file, F_DUPFD_CLOEXEC, 0));
    begin("migrate-incoming", file, std::move(done));
    watchSilence();
}

void Migration::begin(const char *command, int file, Done done)
{
    m_done = std::move(done);
    JsonTree speed(json_mkobject());
    json_append_int64(speed.get(), "max-bandwidth", BANDWIDTH);
    m_qmp.execute("migrate-set-parameters", std::move(speed), {});
    JsonTree name(json_mkobject());
    json_append_str(name.get(), "fdname", FD_NAME);
    m_qmp.execute("getfd", std::move(name), {}, file);
    JsonTree address(json_mkobject());
    json_append_str(address.get(), "uri", (std::string("fd:") + FD_NAME).c_str());
    m_qmp.execute(command, std::move(address),
                  [this](const json *result, const std::string &error) {
                      if (!result && m_done)
                          finish(error);
                  });
    poll();
}

void Migration::poll()
{
    m_poll = event_timer(m_loop, POLL_MS, [this] {
        m_qmp.execute("query-migrate", [this](const json *result, const std::string &error) {
            if (m_done)
                judge(result, error);
        });
    });
}

// QEMU may read the whole state without looking at its monitor once. But the descriptor that it was
// given shares its offset with this one, which tells how far it is.
void Migration::watchSilence()
{
    m_heard = false;
    m_offset = lseek(m_file.get(), 0, SEEK_CUR);
    m_silence = event_timer(m_loop, m_silence_ms, [this] {
        if (m_heard || lseek(m_file.get(), 0, SEEK_CUR) != m_offset)
            watchSilence();
        else
            finish("QEMU has fallen silent while it reads the state");
    });
}

void Migration::judge(const json *result, const std::string &error)
{
    m_heard = true;
    const std::string status = json_find_str(result, "status", "");
    const int64_t total = json_find_int64(result, "ram.total", 0);
    if (m_progress && total > 0)
        m_progress = 100 - json_find_int64(result, "ram.remaining", 0) * 100 / total;
    if (!result)
        finish(error);
    else if (status == "failed" || status == "cancelled")
        finish(json_find_str(result, "error-desc", "QEMU could not write or read the state"));
    else if (status == "completed")
        finish("");
    else
        poll();
}

void Migration::cancel()
{
    m_poll.reset();
    m_silence.reset();
    m_done = nullptr;
}

void Migration::finish(const std::string &error)
{
    m_poll.reset();
    m_silence.reset();
    m_file.reset();
    m_progress.reset();
    if (const Done done = std::exchange(m_done, nullptr))
        done({0, error});
}
