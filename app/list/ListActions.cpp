#include "app/list/ListActions.h"

#include "app/kit/Alert.h"
#include "app/kit/BackgroundWork.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "app/list/ListContents.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/model/ControllerRun.h"
#include "app/model/ForceStopOffer.h"
#include "app/model/LongCommand.h"
#include "app/model/TarvVM.h"
#include "hostlib/vm/addons.h"
#include "hostlib/vm/owners.h"
#include "policy/owners.h"

#include <QFile>
#include <QPointer>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
// Whether a VM carries the guest add-ons; it reads its disk and runs external tools.
bool hasAddons(const QByteArray &vmid)
{
    const VmlibOwner library(vmlib_open(nullptr));
    const VmOwner record(library ? vmlib_get(library.get(), vmid.constData(), nullptr) : nullptr);
    const KvOwner version(vm_read_addons_version(record.get()));
    return version != nullptr;
}

// The same as ListActions::forceStop once the list's window has gone. What has been suspended or
// has stopped meanwhile is left alone: force would drop a saved state.
void forceStopUnwatched(const QStringList &vmids)
{
    const auto find = [vmids,
                       preparation = ControllerRun::prepare()]() -> BackgroundWork::Continuation {
        QStringList running;
        for (const QString &vmid : vmids)
            if (takesVM(ListCommand::stop, TarvVM::serviceStatus(vmid)))
                running.append(vmid);
        return [running, preparation] {
            if (!running.isEmpty())
                TarvCTL::executeCommand(longCommandArguments(u"stop"_s, {u"--force"_s}, running));
        };
    };
    BackgroundWork::shared().run(BackgroundWork::Lane::guests, find);
}
} // namespace

ListActions::ListActions(WindowController *window, VirtualMachinesTable *table,
                         ListContents *contents)
    : QObject(window), m_window(window), m_table(table), m_contents(contents)
{
}

QList<TarvVM *> ListActions::selected() const
{
    QList<TarvVM *> objects;
    for (const int row : m_table->selectedRows())
        objects.append(m_contents->machines()->objectAt(row));
    return objects;
}

QStringList ListActions::selectedIdentifiers() const
{
    QStringList identifiers;
    for (const TarvVM *vm : selected())
        identifiers.append(vm->uuid());
    return identifiers;
}

QStringList ListActions::selectedStatuses() const
{
    QStringList statuses;
    for (const TarvVM *vm : selected())
        statuses.append(m_contents->machines()->shownStatus(vm));
    return statuses;
}

TarvVM *ListActions::vmOfRow() const
{
    return m_contents->machines()->objectAt(m_table->selectedRow());
}

// Statuses first, for all at once: the starts then follow in the order of the selection.
void ListActions::start(StartMode mode)
{
    const QStringList vmids = selectedIdentifiers();
    m_contents->gatherStatuses(vmids, [this, vmids, mode](const QSet<QString> &silent) {
        const VirtualMachinesController *machines = m_contents->machines();
        for (const QString &vmid : vmids) {
            TarvVM *vm = machines->find(vmid);
            silent.contains(vmid) ? vm->start(mode) : vm->start(mode, machines->shownStatus(vm));
        }
    });
}

void ListActions::startRow(bool forced)
{
    TarvVM *vm = vmOfRow();
    if (!vm)
        return;
    forced ? vm->start(StartMode::forced) : startByAddons(vm->uuid());
}

void ListActions::startByAddons(const QString &vmid)
{
    if (m_starting.contains(vmid))
        return; // its add-ons version is being read; one start follows
    m_starting.insert(vmid);
    // The shared one: a start that was asked for happens also when this window closes meanwhile.
    BackgroundWork::shared().run(
        BackgroundWork::Lane::guests,
        [self = QPointer(this), vmid,
         preparation = ControllerRun::prepare()]() -> BackgroundWork::Continuation {
            const bool addons = hasAddons(QFile::encodeName(vmid));
            const StartMode mode = addons ? StartMode::normal : StartMode::forced;
            return [self, vmid, mode, preparation] {
                if (self)
                    self->m_starting.remove(vmid);
                TarvVM *known = self ? self->m_contents->machines()->find(vmid) : nullptr;
                known ? known->start(mode) : TarvVM(vmid).start(mode);
            };
        });
}

QStringList ListActions::freeFor(const QString &kind, const QStringList &vmids)
{
    QStringList result;
    for (const QString &vmid : vmids)
        if (!ControllerRun::isUnderWay(kind, vmid))
            result.append(vmid);
    return result;
}

void ListActions::run(ListCommand command)
{
    const Request request{command, selectedIdentifiers()};
    if (m_requests.contains(request))
        return; // asked for twice before it began
    m_requests.append(request);
    prepareNext();
}

void ListActions::prepareNext()
{
    if (m_busy || m_requests.isEmpty())
        return;
    m_busy = true;
    const Request request = m_requests.first();
    m_contents->gatherStatuses(request.vmids, [this, request](const QSet<QString> &) {
        m_requests.removeOne(request);
        runPrepared(request);
    });
}

void ListActions::runPrepared(const Request &request)
{
    const VirtualMachinesController *machines = m_contents->machines();
    QStringList taken;
    for (const QString &vmid : request.vmids)
        if (takesVM(request.command, machines->shownStatus(machines->find(vmid))))
            taken.append(vmid);
    const ListCommandForm form = listCommandForm(request.command);
    const QString kind = commandKind(QStringList(form.command) + form.options);
    runUnderSheet(form.command, form.title, freeFor(kind, taken), form.options);
}

void ListActions::runUnderSheet(const QString &command, const QString &description,
                                const QStringList &virtualMachines, const QStringList &options)
{
    const auto goOn = [self = QPointer(this)] {
        if (!self)
            return;
        self->m_busy = false;
        self->prepareNext();
    };
    if (virtualMachines.isEmpty())
        return goOn();
    m_busy = true;
    LongCommand run{longCommandArguments(command, options, virtualMachines), description};
    run.succeeded = [contents = QPointer(m_contents)] {
        if (contents)
            contents->reload();
    };
    run.sheetDidEnd = goOn;
    if (command == u"stop"_s && options.isEmpty())
        run.failed = forceStopOffer(m_window, [self = QPointer(this), virtualMachines] {
            if (self)
                self->forceStop(virtualMachines);
            else
                forceStopUnwatched(virtualMachines);
        });
    runLongCommand(*m_window, std::move(run));
}

// Of those that were asked to stop, the ones that still run.
void ListActions::forceStop(const QStringList &vmids)
{
    m_contents->gatherStatuses(vmids, [this, vmids](const QSet<QString> &) {
        const VirtualMachinesController *machines = m_contents->machines();
        QStringList running;
        for (const QString &vmid : vmids)
            if (takesVM(ListCommand::stop, machines->shownStatus(machines->find(vmid))))
                running.append(vmid);
        const ListCommandForm form = listCommandForm(ListCommand::forceStop);
        runUnderSheet(form.command, form.title, running, form.options);
    });
}

void ListActions::copyRow()
{
    const TarvVM *vm = vmOfRow();
    if (vm && !ControllerRun::isUnderWay(u"clone"_s, vm->uuid()))
        runUnderSheet(u"clone"_s, copyTitle(), {vm->uuid(), uniqueNameFor(vm->name())},
                      {u"--copy"_s});
}

void ListActions::cloneRow()
{
    const TarvVM *vm = vmOfRow();
    if (vm && !ControllerRun::isUnderWay(u"clone"_s, vm->uuid()))
        TarvCTL::executeCommand({u"clone"_s, vm->uuid(), uniqueNameFor(vm->name())});
}

void ListActions::renameRow()
{
    m_table->editName(m_table->selectedRow());
}

void ListActions::deleteSelected()
{
    const QStringList vmids = selectedIdentifiers();
    if (vmids.isEmpty())
        return;
    QStringList names;
    for (const TarvVM *vm : selected())
        names.append(vm->name().isEmpty() ? vm->uuid() : vm->name()); // as its row says
    Alert alert(deleteQuestion(names));
    alert.addButton(tr("Delete")).addButton(tr("Cancel"));
    alert.beginSheet(m_window->window(), [this, vmids](int result) {
        if (result == ALERT_FIRST_BUTTON)
            runDelete(vmids);
    });
}

void ListActions::runDelete(const QStringList &vmids)
{
    const QStringList arguments = deleteArguments(freeFor(u"delete"_s, vmids));
    if (arguments.isEmpty())
        return;
    TarvCTL::executeCommand(
        arguments, std::nullopt,
        [contents = QPointer(m_contents)](const QJsonValue &, const auto &error) {
            if (!error && contents)
                contents->reload();
        });
}

QString ListActions::uniqueNameFor(const QString &name) const
{
    QStringList taken;
    for (const TarvVM *vm : m_contents->machines()->arrangedObjects())
        taken.append(vm->name());
    return uniqueName(name, taken);
}
