// The window that lists all VMs, and the actions on them.
#pragma once

#include "app/kit/WindowController.h"
#include "app/model/TarvCTL.h"

#include <QMap>
#include <QStringList>

#include <memory>

namespace Ui {
class WelcomeWindowController;
}
class ListActions;
class ListChrome;
class ListContents;
class ListMenu;
class TarvVM;
class VirtualMachinesController;
class VirtualMachinesTable;

// Answers the menu's actions and joins four rooms: what is shown (ListContents), what commands do
// to the selection (ListActions), the menu and buttons that offer them (ListMenu) and the window
// around them (ListChrome). Nothing here waits for a file, a service or a VM.
class WelcomeWindowController : public WindowController
{
    Q_OBJECT

public:
    // A new one; the caller owns it.
    static WelcomeWindowController *controller();
    ~WelcomeWindowController() override;

    VirtualMachinesController *virtualMachinesController() const;
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
    const QMap<QString, QString> &unreadableVirtualMachines() const;

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
    void connectContents();
    void showListState();
    void showProblems();

    std::unique_ptr<Ui::WelcomeWindowController> m_ui;
    // Children of this controller or of its window.
    ListContents *m_contents;
    ListActions *m_actions = nullptr;
    ListChrome *m_chrome = nullptr;
    ListMenu *m_menu = nullptr;
};
