// What the commands of the VM list do to the selected VMs.
#pragma once

#include "app/list/ListCommands.h"
#include "tarvhv/cli2/start_mode.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QStringList>

class ListContents;
class TarvVM;
class VirtualMachinesTable;
class WindowController;

// Starting goes through the VM's model; every other command runs the controller. Nothing here
// waits: a command goes by the statuses as they are then, or as shown when a VM does not answer in
// a second. What was asked for happens also when the window closes meanwhile.
class ListActions : public QObject
{
    Q_OBJECT

public:
    // Belongs to `window`, on which its sheets are shown, as table and contents do.
    ListActions(WindowController *window, VirtualMachinesTable *table, ListContents *contents);

    // The selected VMs, from top to bottom.
    QList<TarvVM *> selected() const;
    QStringList selectedStatuses() const; // as shown

    // Starts the selected VMs, in order.
    void start(StartMode mode);
    // Starts the VM of the selected row: forced where it has no guest add-ons, or when asked for.
    void startRow(bool forced);
    // Runs a command on those of the selected VMs that it is for.
    void run(ListCommand command);
    // Deletes the selected VMs, if the user confirms it.
    void deleteSelected();
    void cloneRow();
    void copyRow();
    void renameRow();

    // A name made from this one that no VM of the list has, ignoring case.
    QString uniqueNameFor(const QString &name) const;
    // Runs a controller command on VMs under a progress sheet; nothing without VMs.
    void runUnderSheet(const QString &command, const QString &description,
                       const QStringList &virtualMachines, const QStringList &options);

private:
    // A command that was asked for, on the VMs that were selected then.
    struct Request
    {
        ListCommand command;
        QStringList vmids;
        bool operator==(const Request &) const = default;
    };

    TarvVM *vmOfRow() const; // null without a selected row
    QStringList selectedIdentifiers() const;
    // Of these, the VMs that such a command is not under way for.
    static QStringList freeFor(const QString &kind, const QStringList &vmids);
    void startByAddons(const QString &vmid);
    void prepareNext();
    void runPrepared(const Request &request);
    void forceStop(const QStringList &vmids);
    void runDelete(const QStringList &vmids);

    WindowController *m_window;
    VirtualMachinesTable *m_table;
    ListContents *m_contents;
    QSet<QString> m_starting; // double-clicked, add-ons version being read
    // Commands under a sheet come one after the other: while one waits for the statuses of its VMs
    // or shows its sheet, further ones wait.
    QList<Request> m_requests;
    bool m_busy = false;
};
