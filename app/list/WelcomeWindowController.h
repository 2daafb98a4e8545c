// The window that lists all VMs, and the actions on them.
#pragma once

#include "app/kit/WindowController.h"
#include "app/list/ListCommands.h"
#include "app/model/LibraryReader.h"
#include "app/model/StatusReader.h"
#include "app/model/TarvCTL.h"
#include "tarvhv/cli2/start_mode.h"

#include <QMap>
#include <QSet>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>

namespace Ui {
class WelcomeWindowController;
}
class QMenu;
class TarvVM;
class TrackingArea;
class VirtualMachinesController;
class VirtualMachinesTable;

// Starting goes through the VM's model; every other action runs the controller. Nothing here waits
// for a file, a service or a VM: the library and the statuses are read off the main thread, and the
// actions go by the statuses as they are then, or as shown when a VM does not answer in a second.
class WelcomeWindowController : public WindowController
{
    Q_OBJECT

public:
    // A new one; the caller owns it.
    static WelcomeWindowController *controller();
    ~WelcomeWindowController() override;

    VirtualMachinesController *virtualMachinesController() const { return m_machines; }
    VirtualMachinesTable *virtualMachinesTableView() const;
    // The selected VMs, from top to bottom.
    QList<TarvVM *> selectedObjects() const;

    // Reads the library again and merges it into the list; never removes a VM from the list. It
    // returns at once; `listReloaded` follows.
    Q_INVOKABLE void reloadVirtualMachines();
    // Reloads, at once when nothing changed lately; however many changes follow, they share the
    // next reload.
    Q_INVOKABLE void virtualMachineDidChange();
    // VMs left out of the list, by identifier, with the reason.
    const QMap<QString, QString> &unreadableVirtualMachines() const { return m_problems; }

    // Starts the double-clicked VM: forced while Option (Alt) is held, or where the VM has no guest
    // add-ons.
    Q_INVOKABLE void virtualMachinesTableDoubleClickAction();
    // Return does to one selected VM what a double-click does; several are opened.
    Q_INVOKABLE void virtualMachinesTableReturnAction();
    Q_INVOKABLE void openDocument(QObject *sender = nullptr);
    Q_INVOKABLE void forceStartVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void recoverVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void stopVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void forceStopVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void suspendVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void rebootVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void delete_(QObject *sender = nullptr);
    Q_INVOKABLE void cloneVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void copyVirtualMachine(QObject *sender = nullptr);
    // Lets the selected VM's name be edited in its row.
    Q_INVOKABLE void renameVirtualMachine(QObject *sender = nullptr);
    Q_INVOKABLE void selectAll(QObject *sender = nullptr);
    // Clears the selection.
    Q_INVOKABLE void cancelOperation(QObject *sender = nullptr);
    Q_INVOKABLE void closeWindow(QObject *sender = nullptr);

    // A name made from this one that no VM of the list has, ignoring case.
    Q_INVOKABLE QString uniqueNameForName(const QString &name) const;
    // Runs a controller command on VMs under a progress sheet; nothing without VMs.
    void runLongCommand(const QString &command, const QString &description,
                        const QStringList &virtualMachines, const QStringList &options = {});
    // Shows an error as a sheet on this window.
    void presentErrorModally(const TarvError &error);

    bool validateMenuItem(QAction *item) override;

Q_SIGNALS:
    void listReloaded();

protected:
    void windowDidLoad();
    void windowDidResize() override;
    void windowDidBecomeKey() override;
    void windowWillClose() override;

private:
    WelcomeWindowController();

    void connectTable();
    void makeActions();
    void connectButtons();
    void observeServices();

    void mergeRecords(const QList<LibraryRecord> &records);
    void takeLateRecord(const LibraryRecord &record);
    void readStatuses();
    void libraryRead(const QList<LibraryRecord> &records);
    void showListState();
    void showProblems();

    void startSelected(StartMode mode);
    void startByAddons(TarvVM *vm);
    void runCommand(ListCommand command);
    void runDelete(const QStringList &arguments);
    QStringList selectedIdentifiers() const;

    QAction *actionFor(const QString &action) const;
    void perform(const QString &action);
    void updateButtons();
    void showContextMenu(const QPoint &position);

    void reloadInfoViewTrackingAreaForCurrentLayout();
    void mouseEntered(const TrackingArea *area);
    void mouseExited(const TrackingArea *area);
    void restoreLayout();
    void saveLayout() const;

    std::unique_ptr<Ui::WelcomeWindowController> m_ui;
    VirtualMachinesController *m_machines;
    QMenu *m_menu = nullptr;
    TrackingArea *m_infoViewTrackingArea = nullptr;
    LibraryReader m_library;
    StatusReader m_statuses;
    QTimer m_buttonsDue;    // many changes of rows, one look at the buttons
    QTimer m_changesGather; // runs for a while after a reload that a change caused
    bool m_changed = false; // a change came while it ran
    QMap<QString, QString> m_problems;
    QSet<QString> m_starting; // double-clicked, add-ons version being read
    bool m_preparing = false; // a command waits for the statuses of its VMs
};
