// The actions of the VM list: what WelcomeWindowController asks of models and of the controller.
#include "app/list/WelcomeWindowController.h"

#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/model/LongCommand.h"
#include "app/model/TarvVM.h"
#include "hostlib/vm/addons.h"
#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "policy/kv.h"

#include <QFile>
#include <QGuiApplication>
#include <QPointer>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Whether a VM carries the guest add-ons; it reads its disk and runs external tools.
bool hasAddons(const QByteArray &vmid)
{
    const std::unique_ptr<vmlib, decltype(&vmlib_close)> library(vmlib_open(nullptr), &vmlib_close);
    const std::unique_ptr<vm, decltype(&vm_close)> record(
        library ? vmlib_get(library.get(), vmid.constData(), nullptr) : nullptr, &vm_close);
    const std::unique_ptr<kv, decltype(&kv_free)> version(vm_read_addons_version(record.get()),
                                                          &kv_free);
    return version != nullptr;
}
} // namespace

void WelcomeWindowController::virtualMachinesTableDoubleClickAction()
{
    TarvVM *vm = m_machines->objectAt(virtualMachinesTableView()->selectedRow());
    if (!vm)
        return;
    if (QGuiApplication::keyboardModifiers().testFlag(Qt::AltModifier)) {
        vm->start(StartMode::forced);
        return;
    }
    startByAddons(vm);
}

void WelcomeWindowController::virtualMachinesTableReturnAction()
{
    const auto selected = selectedObjects().size();
    selected == 1 ? virtualMachinesTableDoubleClickAction() : openDocument();
}

void WelcomeWindowController::startByAddons(TarvVM *vm)
{
    const QString vmid = vm->uuid();
    if (m_starting.contains(vmid))
        return; // its add-ons version is being read; one start follows
    m_starting.insert(vmid);
    // The shared one: a start that was asked for happens also when this window closes meanwhile.
    BackgroundWork::shared().run(BackgroundWork::Lane::guests,
                                 [self = QPointer(this), vmid]() -> BackgroundWork::Continuation {
                                     const StartMode mode = hasAddons(QFile::encodeName(vmid))
                                                                ? StartMode::normal
                                                                : StartMode::forced;
                                     return [self, vmid, mode] {
                                         if (self)
                                             self->m_starting.remove(vmid);
                                         TarvVM *known =
                                             self ? self->m_machines->find(vmid) : nullptr;
                                         known ? known->start(mode) : TarvVM(vmid).start(mode);
                                     };
                                 });
}

// Statuses first, for all at once: the starts then follow in the order of the selection.
void WelcomeWindowController::startSelected(StartMode mode)
{
    const QStringList vmids = selectedIdentifiers();
    m_statuses.gather(vmids, [this, vmids, mode](const QSet<QString> &silent) {
        for (const QString &vmid : vmids) {
            TarvVM *vm = m_machines->find(vmid);
            silent.contains(vmid) ? vm->start(mode) : vm->start(mode, m_machines->shownStatus(vm));
        }
    });
}

void WelcomeWindowController::openDocument(QObject *)
{
    startSelected(StartMode::normal);
}

void WelcomeWindowController::forceStartVirtualMachine(QObject *)
{
    startSelected(StartMode::forced);
}

void WelcomeWindowController::recoverVirtualMachine(QObject *)
{
    startSelected(StartMode::recovery);
}

void WelcomeWindowController::runLongCommand(const QString &command, const QString &description,
                                             const QStringList &virtualMachines,
                                             const QStringList &options)
{
    if (virtualMachines.isEmpty())
        return;
    ::runLongCommand(*this, longCommandArguments(command, options, virtualMachines), description,
                     [self = QPointer(this)] {
                         if (self)
                             self->reloadVirtualMachines();
                     });
}

void WelcomeWindowController::runCommand(ListCommand command)
{
    if (std::exchange(m_preparing, true))
        return;
    const QStringList vmids = selectedIdentifiers();
    m_statuses.gather(vmids, [this, vmids, command](const QSet<QString> &) {
        m_preparing = false;
        QStringList taken;
        for (const QString &vmid : vmids)
            if (takesVM(command, m_machines->shownStatus(m_machines->find(vmid))))
                taken.append(vmid);
        const ListCommandForm form = listCommandForm(command);
        runLongCommand(form.command, form.title, taken, form.options);
    });
}

void WelcomeWindowController::stopVirtualMachine(QObject *)
{
    runCommand(ListCommand::stop);
}

void WelcomeWindowController::forceStopVirtualMachine(QObject *)
{
    runCommand(ListCommand::forceStop);
}

void WelcomeWindowController::suspendVirtualMachine(QObject *)
{
    runCommand(ListCommand::suspend);
}

void WelcomeWindowController::rebootVirtualMachine(QObject *)
{
    runCommand(ListCommand::reboot);
}

void WelcomeWindowController::copyVirtualMachine(QObject *)
{
    if (const TarvVM *vm = m_machines->objectAt(virtualMachinesTableView()->selectedRow())) {
        runLongCommand(u"clone"_s, tr("Copying ..."), {vm->uuid(), uniqueNameForName(vm->name())},
                       {u"--copy"_s});
    }
}

void WelcomeWindowController::cloneVirtualMachine(QObject *)
{
    if (const TarvVM *vm = m_machines->objectAt(virtualMachinesTableView()->selectedRow()))
        TarvCTL::executeCommand({u"clone"_s, vm->uuid(), uniqueNameForName(vm->name())});
}

void WelcomeWindowController::renameVirtualMachine(QObject *)
{
    virtualMachinesTableView()->editName(virtualMachinesTableView()->selectedRow());
}

void WelcomeWindowController::delete_(QObject *)
{
    const QStringList arguments = deleteArguments(selectedIdentifiers());
    if (arguments.isEmpty())
        return;
    QStringList names;
    for (const TarvVM *vm : selectedObjects())
        names.append(vm->name().isEmpty() ? vm->uuid() : vm->name()); // as its row says
    Alert alert(deleteQuestion(names));
    alert.addButton(tr("Delete")).addButton(tr("Cancel"));
    alert.beginSheet(window(), [this, arguments](int result) {
        if (result == AlertFirstButton)
            runDelete(arguments);
    });
}

void WelcomeWindowController::runDelete(const QStringList &arguments)
{
    TarvCTL::executeCommand(arguments, std::nullopt,
                            [self = QPointer(this)](const QJsonValue &, const auto &error) {
                                if (!error && self)
                                    self->reloadVirtualMachines();
                            });
}

QString WelcomeWindowController::uniqueNameForName(const QString &name) const
{
    QStringList taken;
    for (const TarvVM *vm : m_machines->arrangedObjects())
        taken.append(vm->name());
    return uniqueName(name, taken);
}
