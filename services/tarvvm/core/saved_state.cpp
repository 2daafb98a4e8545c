#include "services/tarvvm/core/saved_state.h"

#include "platform/unique_fd.h"

#include <fcntl.h>
#include <utility>

namespace {

constexpr uint64_t RETRY_MS = 5000;

} // namespace

SavedState::SavedState(sd_event *loop, Worker &worker, std::shared_ptr<VmRecord> record, VmLog &log,
                       std::string name, std::string directory)
    : m_loop(loop),
      m_worker(worker),
      m_record(std::move(record)),
      m_log(log),
      m_name(std::move(name)),
      m_directory(std::move(directory))
{
}

void SavedState::load(Migration &migration, Done done)
{
    m_log.line("resuming from " + m_name);
    const std::string path = m_name.starts_with('/') ? m_name : m_directory + "/" + m_name;
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file)
        migration.load(file.get(), std::move(done));
    else
        done(ServiceFailure::of(path));
}

void SavedState::use(const Done &done)
{
    m_mark_asked = true;
    const bool taken =
        m_worker.run([record = m_record, name = m_name] { return record->markUsed(name); }, done);
    if (!taken)
        done({EBUSY, "it can't be marked as used: too much waits for the disk"});
}

void SavedState::takeBack(const Done &done)
{
    const bool taken = m_worker.run([record = m_record] { return record->unmark(); },
                                    [this, done](const ServiceFailure &failure) {
                                        m_mark_asked = bool(failure);
                                        done(failure);
                                    });
    if (!taken)
        done({EBUSY, "too much waits for the disk"});
}

void SavedState::drop()
{
    if (m_name.empty())
        return;
    // It never outlives the run: it goes with this object, and before a suspend names another one.
    const auto retry = [this] {
        m_log.line("the record still names the saved state; it is tried again");
        m_retry = event_timer(m_loop, RETRY_MS, [this] { drop(); });
    };
    const bool taken =
        m_worker.run([record = m_record, name = m_name] { return record->removeState(name); },
                     [this, retry](bool removed) {
                         if (removed)
                             m_name.clear();
                         else
                             retry();
                     });
    if (!taken)
        retry();
}
