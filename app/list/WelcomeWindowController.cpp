#include "app/list/WelcomeWindowController.h"

#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/kit/UserDefaults.h"
#include "app/list/TrackingArea.h"
#include "app/list/UnreadableSheet.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindow.h"
#include "app/model/TarvVM.h"
#include "ui_WelcomeWindowController.h"

#include <QApplication>
#include <QMenu>
#include <QPointer>

#include <utility>

using namespace Qt::StringLiterals;

namespace {
const QString geometryKey = u"VirtualMachinesWindowGeometry"_s;
const QString columnsKey = u"VirtualMachinesTableColumns"_s;
constexpr int icon_size = 44; // logical pixels
constexpr int changes_gather_ms = 200;

struct MenuItem
{
    const char *title; // null: a separator
    const char *action;
    const char *key = ""; // of the table, told beside the title
};
constexpr MenuItem menu_items[] = {
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Start"), "openDocument:", "Return"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Force Start"), "forceStartVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Start in Recovery"), "recoverVirtualMachine:"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Suspend"), "suspendVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Reboot"), "rebootVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Stop"), "stopVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Force Stop"), "forceStopVirtualMachine:"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Rename"), "renameVirtualMachine:", "F2"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Clone"), "cloneVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Copy"), "copyVirtualMachine:"},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "Delete…"), "delete:", "Del"},
    {nullptr, nullptr},
    {QT_TRANSLATE_NOOP("WelcomeWindowController", "New VM…"), "newDocument:"},
};
} // namespace

WelcomeWindowController *WelcomeWindowController::controller()
{
    return new WelcomeWindowController;
}

WelcomeWindowController::WelcomeWindowController()
    : m_ui(std::make_unique<Ui::WelcomeWindowController>()),
      m_machines(new VirtualMachinesController(this))
{
    auto *window = new WelcomeWindow;
    m_ui->setupUi(window);
    setWindow(window);
    MainMenu::installIn(window);
    connectTable();
    makeActions();
    connectButtons();
    connect(&m_library, &LibraryReader::libraryRead, this, &WelcomeWindowController::libraryRead);
    connect(&m_library, &LibraryReader::lateRecordRead, this,
            &WelcomeWindowController::takeLateRecord);
    connect(&m_statuses, &StatusReader::statusRead, m_machines,
            &VirtualMachinesController::setAnswer);
    windowDidLoad();
}

WelcomeWindowController::~WelcomeWindowController()
{
    saveLayout();
    delete window(); // while what its widgets tell still has a receiver
}

void WelcomeWindowController::windowDidLoad()
{
    setExcludedFromWindowsMenu(true);
    m_ui->versionLabel->setText(tr("Version %@").replace(u"%@"_s, QString::fromUtf8(TARV_VERSION)));
    QFont title = m_ui->titleLabel->font();
    title.setPointSizeF(title.pointSizeF() * 1.6);
    title.setWeight(QFont::DemiBold);
    m_ui->titleLabel->setFont(title);
    QFont heading = m_ui->noContainersLabel->font();
    heading.setPointSizeF(heading.pointSizeF() * 1.3);
    m_ui->noContainersLabel->setFont(heading);
    m_ui->unreadableButton->setIcon(QIcon(u":/tarv/caution.svg"_s));
    QFont quiet = m_ui->unreadableButton->font();
    quiet.setPointSizeF(quiet.pointSizeF() * 0.9);
    m_ui->unreadableButton->setFont(quiet);
    const QIcon icon = QApplication::windowIcon();
    m_ui->iconLabel->setPixmap(
        icon.pixmap(QSize(icon_size, icon_size), window()->devicePixelRatioF()));
    m_ui->iconLabel->setVisible(!icon.isNull());
    m_ui->closeButton->hide();
    m_ui->emptyState->hide();
    m_ui->unreadableButton->hide();
    restoreLayout();
    reloadInfoViewTrackingAreaForCurrentLayout();
    reloadVirtualMachines();
    observeServices();
}

void WelcomeWindowController::observeServices()
{
    for (const QString &name : {VMServiceDidStart, VMServiceDidStop, VMServiceDidChange,
                                VMServiceDidCreate, VMServiceDidDelete}) {
        NotificationCenter::defaultCenter().addObserver(
            this, name, [this](const Notification &) { virtualMachineDidChange(); });
    }
}

void WelcomeWindowController::connectTable()
{
    VirtualMachinesTable *table = m_ui->virtualMachinesTableView;
    table->setModel(m_machines);
    connect(table, &VirtualMachinesTable::doubleClickedRow, this,
            &WelcomeWindowController::virtualMachinesTableDoubleClickAction);
    connect(table, &VirtualMachinesTable::returnPressed, this,
            &WelcomeWindowController::virtualMachinesTableReturnAction);
    connect(table, &VirtualMachinesTable::deletePressed, this, [this] { perform(u"delete:"_s); });
    connect(table, &VirtualMachinesTable::renamePressed, this,
            [this] { perform(u"renameVirtualMachine:"_s); });
    connect(table, &VirtualMachinesTable::escapePressed, this, [this] { cancelOperation(); });
    connect(table, &QWidget::customContextMenuRequested, this,
            &WelcomeWindowController::showContextMenu);
    m_changesGather.setSingleShot(true);
    connect(&m_changesGather, &QTimer::timeout, this, [this] {
        if (std::exchange(m_changed, false))
            virtualMachineDidChange();
    });
    m_buttonsDue.setSingleShot(true);
    connect(&m_buttonsDue, &QTimer::timeout, this, &WelcomeWindowController::updateButtons);
    const auto look = [this] { m_buttonsDue.start(0); };
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this, look);
    connect(m_machines, &QAbstractItemModel::dataChanged, this, look);
}

void WelcomeWindowController::makeActions()
{
    m_menu = new QMenu(window());
    m_menu->setObjectName(u"virtualMachineMenu"_s);
    for (const MenuItem &item : menu_items) {
        if (!item.title) {
            m_menu->addSeparator();
            continue;
        }
        QAction *action = m_menu->addAction(tr(item.title));
        action->setProperty(Responder::actionProperty, QString::fromLatin1(item.action));
        action->setObjectName(u"context_"_s + QString::fromLatin1(item.action).chopped(1));
        action->setShortcut(QKeySequence(QString::fromLatin1(item.key)));
        connect(action, &QAction::triggered, this,
                [this, action] { Responder::perform(window(), action); });
    }
    connect(m_menu, &QMenu::aboutToShow, this, [this] {
        for (QAction *action : m_menu->actions())
            action->setEnabled(Responder::validate(window(), action));
    });
}

void WelcomeWindowController::connectButtons()
{
    for (QPushButton *button : {m_ui->startButton, m_ui->stopButton, m_ui->newButton}) {
        connect(button, &QPushButton::clicked, this, [this, button] {
            perform(button->property(Responder::actionProperty).toString());
        });
    }
    connect(m_ui->closeButton, &QAbstractButton::clicked, this, [this] { closeWindow(); });
    connect(m_ui->unreadableButton, &QAbstractButton::clicked, this,
            &WelcomeWindowController::showProblems);
    updateButtons();
}

QAction *WelcomeWindowController::actionFor(const QString &action) const
{
    for (QAction *item : m_menu->actions())
        if (Responder::actionOf(item) == action)
            return item;
    return nullptr;
}

void WelcomeWindowController::perform(const QString &action)
{
    Responder::perform(window(), actionFor(action));
}

void WelcomeWindowController::updateButtons()
{
    for (QPushButton *button : {m_ui->startButton, m_ui->stopButton, m_ui->newButton}) {
        QAction *action = actionFor(button->property(Responder::actionProperty).toString());
        button->setEnabled(Responder::validate(window(), action));
    }
}

void WelcomeWindowController::showContextMenu(const QPoint &position)
{
    m_menu->popup(m_ui->virtualMachinesTableView->viewport()->mapToGlobal(position));
}

VirtualMachinesTable *WelcomeWindowController::virtualMachinesTableView() const
{
    return m_ui->virtualMachinesTableView;
}

QList<TarvVM *> WelcomeWindowController::selectedObjects() const
{
    QList<TarvVM *> objects;
    for (const int row : m_ui->virtualMachinesTableView->selectedRows())
        objects.append(m_machines->objectAt(row));
    return objects;
}

QStringList WelcomeWindowController::selectedIdentifiers() const
{
    QStringList identifiers;
    for (const TarvVM *vm : selectedObjects())
        identifiers.append(vm->uuid());
    return identifiers;
}

// ---- reloading

void WelcomeWindowController::reloadVirtualMachines()
{
    m_library.read();
}

void WelcomeWindowController::virtualMachineDidChange()
{
    if (m_changesGather.isActive()) {
        m_changed = true;
        return;
    }
    m_changesGather.start(changes_gather_ms);
    reloadVirtualMachines();
}

void WelcomeWindowController::libraryRead(const QList<LibraryRecord> &records)
{
    m_problems.clear();
    mergeRecords(records);
    readStatuses();
    showListState();
    Q_EMIT listReloaded();
}

void WelcomeWindowController::takeLateRecord(const LibraryRecord &record)
{
    m_problems.remove(record.id);
    if (record.vanished)
        return showListState();
    mergeRecords({record});
    m_statuses.ask(record.id);
    showListState();
}

void WelcomeWindowController::mergeRecords(const QList<LibraryRecord> &records)
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

void WelcomeWindowController::readStatuses()
{
    for (const TarvVM *vm : m_machines->arrangedObjects())
        m_statuses.ask(vm->uuid());
}

void WelcomeWindowController::showListState()
{
    m_ui->emptyState->setVisible(m_machines->count() == 0);
    m_ui->emptyHint->setText(Responder::validate(window(), actionFor(u"newDocument:"_s))
                                 ? tr("Choose New VM… to make one.")
                                 : tr("Make one with the command \"tarvctl create\"."));
    const auto count = static_cast<int>(m_problems.size());
    m_ui->unreadableButton->setVisible(count > 0);
    m_ui->unreadableButton->setText(count == 1 ? tr("1 VM could not be read")
                                               : tr("%n VMs could not be read", nullptr, count));
}

void WelcomeWindowController::showProblems()
{
    QList<QPair<QString, QString>> problems;
    for (auto problem = m_problems.begin(); problem != m_problems.end(); ++problem)
        problems.append({problem.key(), problem.value()});
    auto *sheet = new UnreadableSheet(problems, window());
    beginSheet(sheet, [sheet](int) { sheet->deleteLater(); });
}

// ---- chrome

void WelcomeWindowController::reloadInfoViewTrackingAreaForCurrentLayout()
{
    delete m_infoViewTrackingArea;
    auto *area = new TrackingArea(m_ui->infoView);
    m_infoViewTrackingArea = area;
    connect(area, &TrackingArea::mouseEntered, this, [this, area] { mouseEntered(area); });
    connect(area, &TrackingArea::mouseExited, this, [this, area] { mouseExited(area); });
}

void WelcomeWindowController::mouseEntered(const TrackingArea *area)
{
    if (area == m_infoViewTrackingArea)
        m_ui->closeButton->show();
}

void WelcomeWindowController::mouseExited(const TrackingArea *area)
{
    if (area == m_infoViewTrackingArea)
        m_ui->closeButton->hide();
}

void WelcomeWindowController::windowDidResize()
{
    reloadInfoViewTrackingAreaForCurrentLayout();
}

void WelcomeWindowController::windowDidBecomeKey()
{
    readStatuses();
}

void WelcomeWindowController::windowWillClose()
{
    saveLayout();
}

void WelcomeWindowController::restoreLayout()
{
    UserDefaults &defaults = UserDefaults::standard();
    window()->restoreGeometry(defaults.dataForKey(geometryKey));
    m_ui->virtualMachinesTableView->restoreColumns(defaults.dataForKey(columnsKey));
}

void WelcomeWindowController::saveLayout() const
{
    if (!window())
        return;
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setData(geometryKey, window()->saveGeometry());
    defaults.setData(columnsKey, m_ui->virtualMachinesTableView->saveColumns());
}

bool WelcomeWindowController::validateMenuItem(QAction *item)
{
    QStringList statuses;
    for (const TarvVM *vm : selectedObjects())
        statuses.append(m_machines->shownStatus(vm));
    return isListActionEnabled(Responder::actionOf(item), statuses);
}

void WelcomeWindowController::cancelOperation(QObject *)
{
    m_ui->virtualMachinesTableView->clearSelection();
}

void WelcomeWindowController::selectAll(QObject *)
{
    m_ui->virtualMachinesTableView->selectAll();
}

void WelcomeWindowController::closeWindow(QObject *)
{
    close();
}

void WelcomeWindowController::presentErrorModally(const TarvError &error)
{
    Alert(error.description).setCritical().beginSheet(window());
}
