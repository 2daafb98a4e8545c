// What the actions of the VM list ask of the controller, and when they can be used: pure functions.
#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

// A command of the controller on some of the selected VMs, shown under a progress sheet.
enum class ListCommand
{
    stop,
    forceStop,
    suspend,
    reboot,
};

struct ListCommandForm
{
    QString command;
    QStringList options;
    QString title; // of the progress sheet, localised
};

ListCommandForm listCommandForm(ListCommand command);
// The title of the sheet under which a VM is copied.
QString copyTitle();
// Whether a selected VM of this status is passed to the command.
bool takesVM(ListCommand command, const QString &status);

// The arguments of a long-running command: the command, its options, then the VMs.
QStringList longCommandArguments(const QString &command, const QStringList &options,
                                 const QStringList &virtualMachines);
// The arguments that delete VMs; empty when there are none.
QStringList deleteArguments(const QStringList &identifiers);
// The question asked before; `names` of the VMs, at least one.
QString deleteQuestion(const QStringList &names);

// A name made from `name` with "_copy" and a number, that none of `taken` equals ignoring case.
QString uniqueName(const QString &name, const QStringList &taken);

// Whether a menu item ("stopVirtualMachine:") is enabled, from the statuses of the selected VMs.
bool isListActionEnabled(const QString &action, const QStringList &statuses);
