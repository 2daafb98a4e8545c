#include "services/tarvvm/core/suspension.h"

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace {

const ServiceFailure BUSY{EBUSY, "too much waits for the disk"};

} // namespace

Suspension::Suspension(Migration &migration, Worker &worker, std::shared_ptr<VmRecord> record,
                       std::string directory, std::string avoided)
    : m_migration(migration),
      m_worker(worker),
      m_record(std::move(record)),
      m_directory(std::move(directory)),
      m_avoided(std::move(avoided))
{
}

Suspension::~Suspension()
{
    drop();
}

void Suspension::begin(Done done)
{
    m_done = std::move(done);
    m_name = state_name_now(m_directory, m_record->id(), m_avoided);
    m_draft = std::make_shared<StateDraft>(state_begin(m_directory, m_record->id()));
    if (m_draft->failure) {
        finish(std::exchange(m_draft, nullptr)->failure);
        return;
    }
    m_migration.save(m_draft->file.get(), [this](const ServiceFailure &failure) {
        if (failure)
            finish(failure);
        else
            publish();
    });
}

void Suspension::publish()
{
    m_recording = true;
    const auto draft = std::exchange(m_draft, nullptr);
    const bool taken =
        m_worker.run([draft, directory = m_directory,
                      name = m_name] { return state_publish(*draft, directory, name); },
                     [this](const ServiceFailure &failure) {
                         if (failure)
                             finish(failure);
                         else
                             record();
                     });
    if (!taken) {
        m_draft = draft;
        finish(BUSY);
    }
}

void Suspension::record()
{
    const bool taken = m_worker.run(
        [record = m_record, path = m_directory + "/" + m_name, name = m_name] {
            ServiceFailure failure = record->writeState(name);
            if (failure)
                unlink(path.c_str());
            return failure;
        },
        [this](const ServiceFailure &failure) {
            m_recorded = !failure;
            finish(failure);
        });
    if (!taken)
        finish(BUSY); // the file, which nothing names, is swept by the next supervisor
}

std::optional<int64_t> Suspension::progress() const
{
    if (m_recording)
        return 99;
    const auto written = m_migration.progress();
    return written ? std::optional(std::min<int64_t>(*written, 99)) : std::nullopt;
}

void Suspension::cancel()
{
    m_migration.cancel();
    drop();
}

void Suspension::finish(const ServiceFailure &failure)
{
    // Who hears of a failure finds the room again that the unfinished file took.
    const auto draft = std::exchange(m_draft, nullptr);
    m_recording =
        draft && !draft->failure &&
        m_worker.post([draft] { unlink(draft->path.c_str()); }, [this, failure] { tell(failure); });
    if (m_recording)
        return;
    if (draft && !draft->failure)
        unlink(draft->path.c_str());
    tell(failure);
}

void Suspension::tell(const ServiceFailure &failure)
{
    m_recording = false;
    if (const Done done = std::exchange(m_done, nullptr))
        done(failure);
}

// The removal of a large file takes the disk a while, so it is the worker's where there is one.
void Suspension::drop()
{
    const auto draft = std::exchange(m_draft, nullptr);
    if (draft && !draft->failure &&
        !m_worker.post([draft] { unlink(draft->path.c_str()); }, nullptr))
        unlink(draft->path.c_str());
}
