#include "app/list/WelcomeWindowController.h"

#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/list/ListActions.h"
#include "app/list/ListChrome.h"
#include "app/list/ListContents.h"
#include "app/list/ListMenu.h"
#include "app/list/UnreadableSheet.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindow.h"
#include "app/model/TarvVM.h"
#include "ui_WelcomeWindowController.h"

#include <QGuiApplication>

using namespace Qt::StringLiterals;

WelcomeWindowController *WelcomeWindowController::controller()
{
    return new WelcomeWindowController;
}

WelcomeWindowController::WelcomeWindowController()
    : m_ui(std::make_unique<Ui::WelcomeWindowController>()), m_contents(new ListContents(this))
{
    auto *window = new WelcomeWindow;
    m_ui->setupUi(window);
    setWindow(window);
    connect(window, &WelcomeWindow::escapePressed, this, [this] { cancelOperation(); });
    MainMenu::installIn(window);
    // The rooms look at the selection, which there is once the table has a model.
    m_ui->virtualMachinesTableView->setModel(m_contents->machines());
    m_actions = new ListActions(this, m_ui->virtualMachinesTableView, m_contents);
    m_menu = new ListMenu(window, {m_ui->startButton, m_ui->stopButton, m_ui->newButton});
    m_chrome = new ListChrome(window, *m_ui);
    connectTable();
    connectContents();
    windowDidLoad();
}

WelcomeWindowController::~WelcomeWindowController()
{
    if (window())
        m_chrome->saveLayout();
    delete window(); // while what its widgets tell still has a receiver
}

void WelcomeWindowController::windowDidLoad()
{
    setExcludedFromWindowsMenu(true);
    m_chrome->restoreLayout();
    m_chrome->reloadInfoViewTrackingAreaForCurrentLayout();
    reloadVirtualMachines();
    for (const QString &name : {VM_SERVICE_DID_START, VM_SERVICE_DID_STOP, VM_SERVICE_DID_CHANGE,
                                VM_SERVICE_DID_CREATE, VM_SERVICE_DID_DELETE}) {
        NotificationCenter::defaultCenter().addObserver(
            this, name, [this](const Notification &) { virtualMachineDidChange(); });
    }
}

void WelcomeWindowController::connectTable()
{
    VirtualMachinesTable *table = m_ui->virtualMachinesTableView;
    connect(table, &VirtualMachinesTable::doubleClickedRow, this,
            &WelcomeWindowController::virtualMachinesTableDoubleClickAction);
    connect(table, &VirtualMachinesTable::returnPressed, this,
            &WelcomeWindowController::virtualMachinesTableReturnAction);
    connect(table, &VirtualMachinesTable::deletePressed, m_menu,
            [this] { m_menu->perform(u"delete:"_s); });
    connect(table, &VirtualMachinesTable::renamePressed, m_menu,
            [this] { m_menu->perform(u"renameVirtualMachine:"_s); });
    connect(table, &VirtualMachinesTable::escapePressed, this, [this] { cancelOperation(); });
    connect(table, &QWidget::customContextMenuRequested, m_menu, [this, table](QPoint position) {
        m_menu->popUp(table->viewport()->mapToGlobal(position));
    });
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, m_menu,
            &ListMenu::lookAtButtonsSoon);
}

void WelcomeWindowController::connectContents()
{
    connect(m_contents->machines(), &QAbstractItemModel::dataChanged, m_menu,
            &ListMenu::lookAtButtonsSoon);
    connect(m_contents, &ListContents::changed, m_chrome, [this] { showListState(); });
    connect(m_contents, &ListContents::reloaded, this, &WelcomeWindowController::listReloaded);
    connect(m_ui->closeButton, &QAbstractButton::clicked, this, [this] { closeWindow(); });
    connect(m_ui->unreadableButton, &QAbstractButton::clicked, this,
            &WelcomeWindowController::showProblems);
}

VirtualMachinesController *WelcomeWindowController::virtualMachinesController() const
{
    return m_contents->machines();
}

VirtualMachinesTable *WelcomeWindowController::virtualMachinesTableView() const
{
    return m_ui->virtualMachinesTableView;
}

QList<TarvVM *> WelcomeWindowController::selectedObjects() const
{
    return m_actions->selected();
}

const QMap<QString, QString> &WelcomeWindowController::unreadableVirtualMachines() const
{
    return m_contents->problems();
}

void WelcomeWindowController::showListState()
{
    m_chrome->showState(m_contents->machines()->count() == 0, m_menu->validates(u"newDocument:"_s),
                        static_cast<int>(m_contents->problems().size()));
}

void WelcomeWindowController::showProblems()
{
    auto *sheet = new UnreadableSheet(m_contents->problems(), window());
    beginSheet(sheet, [sheet](int) { sheet->deleteLater(); });
}

bool WelcomeWindowController::validateMenuItem(QAction *item)
{
    return isListActionEnabled(Responder::actionOf(item), m_actions->selectedStatuses());
}

void WelcomeWindowController::presentErrorModally(const TarvError &error)
{
    Alert(error.description).setCritical().beginSheet(window());
}

// ---- what the window is told of

void WelcomeWindowController::windowDidResize()
{
    m_chrome->reloadInfoViewTrackingAreaForCurrentLayout();
}

void WelcomeWindowController::windowDidBecomeKey()
{
    m_contents->readStatuses();
}

void WelcomeWindowController::windowWillClose()
{
    m_chrome->saveLayout();
}

void WelcomeWindowController::virtualMachineDidChange()
{
    m_contents->reloadSoon();
}

// ---- the actions

void WelcomeWindowController::reloadVirtualMachines()
{
    m_contents->reload();
}

void WelcomeWindowController::virtualMachinesTableDoubleClickAction()
{
    m_actions->startRow(QGuiApplication::keyboardModifiers().testFlag(Qt::AltModifier));
}

void WelcomeWindowController::virtualMachinesTableReturnAction()
{
    const auto selected = selectedObjects().size();
    selected == 1 ? virtualMachinesTableDoubleClickAction() : openDocument();
}

void WelcomeWindowController::openDocument(QObject *)
{
    m_actions->start(StartMode::normal);
}

void WelcomeWindowController::forceStartVirtualMachine(QObject *)
{
    m_actions->start(StartMode::forced);
}

void WelcomeWindowController::recoverVirtualMachine(QObject *)
{
    m_actions->start(StartMode::recovery);
}

void WelcomeWindowController::stopVirtualMachine(QObject *)
{
    m_actions->run(ListCommand::stop);
}

void WelcomeWindowController::forceStopVirtualMachine(QObject *)
{
    m_actions->run(ListCommand::forceStop);
}

void WelcomeWindowController::suspendVirtualMachine(QObject *)
{
    m_actions->run(ListCommand::suspend);
}

void WelcomeWindowController::rebootVirtualMachine(QObject *)
{
    m_actions->run(ListCommand::reboot);
}

void WelcomeWindowController::delete_(QObject *)
{
    m_actions->deleteSelected();
}

void WelcomeWindowController::cloneVirtualMachine(QObject *)
{
    m_actions->cloneRow();
}

void WelcomeWindowController::copyVirtualMachine(QObject *)
{
    m_actions->copyRow();
}

void WelcomeWindowController::renameVirtualMachine(QObject *)
{
    m_actions->renameRow();
}

void WelcomeWindowController::selectAll(QObject *)
{
    m_ui->virtualMachinesTableView->selectAll();
}

void WelcomeWindowController::cancelOperation(QObject *)
{
    m_ui->virtualMachinesTableView->clearSelection();
}

void WelcomeWindowController::closeWindow(QObject *)
{
    close();
}

QString WelcomeWindowController::uniqueNameForName(const QString &name) const
{
    return m_actions->uniqueNameFor(name);
}

void WelcomeWindowController::runLongCommand(const QString &command, const QString &description,
                                             const QStringList &virtualMachines,
                                             const QStringList &options)
{
    m_actions->runUnderSheet(command, description, virtualMachines, options);
}
