#include "app/list/ListContents.h"

#include "app/list/VirtualMachinesController.h"
#include "app/model/TarvVM.h"

#include <memory>
#include <utility>
#include <vector>

namespace {
// Services tell of one event in several notifications, and a script of a hundred VMs in hundreds.
constexpr int CHANGES_GATHER_MS = 200;
} // namespace

ListContents::ListContents(QObject *parent)
    : QObject(parent), m_machines(new VirtualMachinesController(this))
{
    connect(&m_library, &LibraryReader::libraryRead, this, &ListContents::takeLibrary);
    connect(&m_library, &LibraryReader::lateRecordRead, this, &ListContents::takeLateRecord);
    connect(&m_statuses, &StatusPoller::statusRead, m_machines,
            &VirtualMachinesController::setAnswer);
    m_changesGather.setSingleShot(true);
    connect(&m_changesGather, &QTimer::timeout, this, [this] {
        if (std::exchange(m_changed, false))
            reloadSoon();
    });
}

void ListContents::reload()
{
    m_library.read();
}

void ListContents::reloadSoon()
{
    if (m_changesGather.isActive()) {
        m_changed = true;
        return;
    }
    m_changesGather.start(CHANGES_GATHER_MS);
    reload();
}

void ListContents::readStatuses()
{
    for (const TarvVM *vm : m_machines->arrangedObjects())
        m_statuses.ask(vm->uuid());
}

void ListContents::gatherStatuses(const QStringList &vmids, StatusPoller::Done done)
{
    m_statuses.gather(vmids, std::move(done));
}

void ListContents::takeLibrary(const QList<LibraryRecord> &records)
{
    m_problems.clear();
    merge(records);
    readStatuses();
    Q_EMIT changed();
    Q_EMIT reloaded();
}

// The record of a VM whose files were locked when the library was read.
void ListContents::takeLateRecord(const LibraryRecord &record)
{
    m_problems.remove(record.id);
    if (!record.vanished) {
        merge({record});
        m_statuses.ask(record.id);
    }
    Q_EMIT changed();
}

void ListContents::merge(const QList<LibraryRecord> &records)
{
    std::vector<std::unique_ptr<TarvVM>> added;
    for (const LibraryRecord &record : records) {
        if (!record.problem.isNull()) {
            m_problems.insert(record.id, record.problem);
        } else if (TarvVM *known = m_machines->find(record.id)) {
            known->setStatus(record.status);
        } else {
            auto vm = std::make_unique<TarvVM>(record.id, record.name, record.status);
            vm->setVersion(record.version);
            added.push_back(std::move(vm));
        }
    }
    m_machines->addObjects(std::move(added));
    m_machines->rearrangeObjects();
}
