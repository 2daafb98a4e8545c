#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindowCloseButton.h"
#include "app/model/ControllerRun.h"
#include "app/model/TarvVM.h"
#include "app/progress/LongRunningOperationWindowController.h"
#include "app/progress/ProgressIndicator.h"
#include "tarvhv/cli2/exit_status.h"
#include "tests/app/fixtures/list_fixture.h"

#include <QApplication>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace {
class WelcomeWindowTest : public ListOfThree
{
protected:
    QWidget *window() const { return m_controller->window(); }
    VirtualMachinesTable *table() const { return m_controller->virtualMachinesTableView(); }

    QPoint rowOf(const QString &id) const
    {
        const auto *list = m_controller->virtualMachinesController();
        return table()->visualRect(list->index(row(id), 0)).center();
    }

    bool isEnabled(const char *action) const
    {
        return Responder::validate(
            window(), MainMenu::of(window())->itemWithAction(QString::fromLatin1(action)));
    }
};
} // namespace

TEST_F(WelcomeWindowTest, doubleClickStartsOneVM)
{
    select({m_suspended});
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {}, rowOf(m_stopped));
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded().last(), u"start -uv "_s + m_stopped) << "no add-ons: forced";

    // Counted as under way at once: a quit, or the window's close, does not lose it.
    ASSERT_TRUE(waitUntil([] { return ControllerRun::underWay() == 0; }));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {}, rowOf(m_suspended));
    EXPECT_EQ(ControllerRun::underWay(), 1u);
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_EQ(recorded().last(), u"start -uv "_s + m_suspended);

    // A click below the last row starts nothing; a double-clicked running VM shows its screen.
    QString opened;
    TarvVM::setDisplayOpener([&](const QString &path, int) { opened = path; });
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {},
                       QPoint(10, table()->viewport()->height() - 5));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, Qt::AltModifier, rowOf(m_running));
    ASSERT_TRUE(waitUntil([&] { return !opened.isEmpty(); }));
    EXPECT_TRUE(opened.contains(m_running));
    EXPECT_EQ(recorded().size(), 2);
}

TEST_F(WelcomeWindowTest, aVMThatDoesNotAnswerHoldsUpNoCommand)
{
    supervise(m_stopped, Supervisor::silent);
    select({m_running, m_stopped});
    m_controller->stopVirtualMachine();
    m_controller->stopVirtualMachine(); // one is being prepared
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded(), QStringList(u"stop "_s + m_running));
}

TEST_F(WelcomeWindowTest, keysActOnTheSelection)
{
    QString opened;
    TarvVM::setDisplayOpener([&](const QString &path, int) { opened = path; });
    table()->setFocus();
    select({m_running});
    QTest::keyClick(table(), Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return opened.contains(m_running); }))
        << "the screen of a running VM";
    select({m_stopped, m_suspended});
    QTest::keyClick(table(), Qt::Key_Return);
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_TRUE(recorded().contains(u"start -fv "_s + m_stopped));
    EXPECT_TRUE(recorded().contains(u"start -fv "_s + m_suspended));

    QTest::keyClick(table(), Qt::Key_F2);
    EXPECT_FALSE(table()->findChild<QLineEdit *>(u"nameEditor"_s)) << "of which of the two?";
    select({m_stopped});
    for (const QString &name : {u" "_s, u"new"_s}) {
        QTest::keyClick(table(), Qt::Key_F2);
        QPointer<QLineEdit> editor = table()->findChild<QLineEdit *>(u"nameEditor"_s);
        ASSERT_TRUE(editor);
        editor->setText(name);
        QTest::keyClick(editor, Qt::Key_Return);
        ASSERT_TRUE(waitUntil([&] { return !editor; }));
    }
    ASSERT_TRUE(waitForRecorded(3));
    EXPECT_EQ(recorded().last(), u"modify %1 set name new"_s.arg(m_stopped));

    QTest::keyClick(table(), Qt::Key_Escape);
    QTest::keyClick(table(), Qt::Key_Delete);
    m_controller->copyVirtualMachine();
    m_controller->cloneVirtualMachine();
    m_controller->stopVirtualMachine();
    EXPECT_FALSE(WindowController::attachedSheet(window())) << "nothing is selected";
    EXPECT_FALSE(QTest::qWaitFor([&] { return recorded().size() > 3; }, 300));
    QTest::keyClick(table(), Qt::Key_End);
    EXPECT_EQ(table()->selectedRows(), QList<int>({2}));
    QTest::keyClick(table(), Qt::Key_Home, Qt::ShiftModifier);
    EXPECT_EQ(table()->selectedRows(), QList<int>({0, 1, 2}));
}

TEST_F(WelcomeWindowTest, aKeyThatIsHeldIsOneCommand)
{
    int opened = 0;
    TarvVM::setDisplayOpener([&](const QString &, int) { opened++; });
    const auto press = [this](int key, bool again) {
        QKeyEvent event(QEvent::KeyPress, key, {}, {}, again);
        QApplication::sendEvent(table(), &event);
    };
    table()->setFocus();
    select({m_running, m_suspended}); // several are opened, each time they are asked for
    press(Qt::Key_Return, /*again=*/false);
    for (int i = 0; i < 5; i++)
        press(Qt::Key_Return, /*again=*/true);
    ASSERT_TRUE(waitUntil([&] { return opened > 0; }));
    EXPECT_FALSE(QTest::qWaitFor([&] { return opened > 1; }, 300));
    for (const int key : {Qt::Key_Delete, Qt::Key_Backspace, Qt::Key_F2, Qt::Key_Escape})
        press(key, /*again=*/true);
    EXPECT_FALSE(WindowController::attachedSheet(window()));
    EXPECT_FALSE(table()->findChild<QLineEdit *>(u"nameEditor"_s));
    EXPECT_EQ(table()->selectedRows().size(), 2);
    for (const QAction *item : MainMenu::of(window())->findChildren<QAction *>())
        EXPECT_TRUE(item->shortcut().isEmpty() || !item->autoRepeat()) << qPrintable(item->text());
}

TEST_F(WelcomeWindowTest, aVMGetsOneCommandOfAKindAtATime)
{
    holdController();
    const auto start = [this] { TarvVM(m_stopped).start(StartMode::normal, u"stopped"_s); };
    start();
    start();
    EXPECT_EQ(ControllerRun::underWay(), 1u);
    select({m_suspended});
    m_controller->cloneVirtualMachine();
    m_controller->cloneVirtualMachine();
    m_controller->copyVirtualMachine();
    EXPECT_EQ(ControllerRun::underWay(), 2u);
    for (int i = 0; i < 2; i++) {
        m_controller->delete_();
        QDialog *question = WindowController::attachedSheet(window());
        ASSERT_TRUE(question);
        question->findChild<QPushButton *>(u"alertButton1"_s)->click();
    }
    EXPECT_EQ(ControllerRun::underWay(), 3u);
    TarvVM(m_suspended).start(StartMode::normal, u"suspended"_s);
    EXPECT_EQ(ControllerRun::underWay(), 3u) << "it is being deleted";
}

TEST_F(WelcomeWindowTest, aSecondCommandWaitsForTheFirstAndOutlivesItsWindow)
{
    holdController();
    supervise(m_stopped, Supervisor::silent);
    select({m_running, m_stopped});
    m_controller->suspendVirtualMachine();
    m_controller->stopVirtualMachine();
    m_controller->stopVirtualMachine();
    m_controller->forceStopVirtualMachine();
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(window()->findChildren<QDialog *>().size(), 1) << "one sheet at a time";
    letControllerGo();
    ASSERT_TRUE(waitForRecorded(3));
    EXPECT_EQ(recorded(), QStringList({u"suspend "_s + m_running, u"stop "_s + m_running,
                                       u"stop --force "_s + m_running}));
    ASSERT_TRUE(waitUntil([] { return ControllerRun::underWay() == 0; }));

    holdController();
    m_controller->stopVirtualMachine();
    ASSERT_TRUE(waitForRecorded(4));
    m_controller.reset();
    EXPECT_EQ(ControllerRun::underWay(), 1u);
    int ended = 0;
    QObject context;
    NotificationCenter::defaultCenter().addObserver(&context, CONTROLLER_RUN_DID_END,
                                                    [&](const Notification &) { ended++; });
    letControllerGo();
    EXPECT_TRUE(waitUntil([&] { return ended == 1; }));
}

TEST_F(WelcomeWindowTest, aGuestThatStaysOnIsWaitedForOrForced)
{
    setController(u"print {\"message\":\"still on\"}\nexit %1\n"_s.arg(EXIT_GUEST_STAYS_ON));
    const auto ask = [this](int runs) {
        select({m_running, m_stopped});
        m_controller->stopVirtualMachine();
        EXPECT_TRUE(waitForRecorded(runs));
        QMessageBox *box = nullptr;
        EXPECT_TRUE(waitUntil([&] {
            box = qobject_cast<QMessageBox *>(WindowController::attachedSheet(window()));
            return box != nullptr;
        }));
        return box;
    };
    const auto press = [](const QMessageBox *box, const char *title) {
        for (QAbstractButton *button : box->buttons())
            if (button->text() == QLatin1String(title))
                return button->click();
        ADD_FAILURE() << "no button " << title;
    };
    QMessageBox *box = ask(1);
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), u"still on"_s);
    EXPECT_EQ(box->defaultButton()->text(), u"Wait"_s);
    EXPECT_EQ(box->escapeButton(), box->defaultButton());
    press(box, "Wait");
    ASSERT_TRUE(waitUntil([this] { return !window()->findChild<QDialog *>(); }));
    EXPECT_EQ(recorded().size(), 1) << "waiting runs nothing";
    box = ask(2);
    ASSERT_TRUE(box);
    setController(u"print {\"body\":{}}\n"_s);
    press(box, "Force Stop");
    ASSERT_TRUE(waitForRecorded(3));
    EXPECT_EQ(recorded().last(), u"stop --force "_s + m_running);
}

TEST_F(WelcomeWindowTest, buttonsTakeReturnAndLeaveEscapeToTheList)
{
    select({m_stopped});
    auto *start = window()->findChild<QPushButton *>(u"startButton"_s);
    ASSERT_TRUE(waitUntil([&] { return start->isEnabled(); }));
    start->setFocus();
    QTest::keyClick(start, Qt::Key_Return);
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded().last(), u"start -fv "_s + m_stopped);
    QTest::keyClick(start, Qt::Key_Escape);
    EXPECT_TRUE(table()->selectedRows().isEmpty());
    for (const QAction *item : window()->findChild<QMenu *>(u"virtualMachineMenu"_s)->actions())
        EXPECT_NE(item->shortcut(), QKeySequence(Qt::Key_Return)) << "it is a double-click";
}

TEST_F(WelcomeWindowTest, aSheetGetsTheKeyboardBack)
{
    select({m_stopped});
    m_controller->delete_();
    QDialog *sheet = WindowController::attachedSheet(window());
    ASSERT_TRUE(sheet && QTest::qWaitForWindowActive(sheet));
    // As a window manager may, for a click on the list.
    window()->activateWindow();
    QEvent activated(QEvent::WindowActivate);
    QApplication::sendEvent(window(), &activated);
    EXPECT_TRUE(waitUntil([&] { return QApplication::activeWindow() == sheet; }));
}

TEST_F(WelcomeWindowTest, aRenamedVMMovesToItsPlace)
{
    ASSERT_EQ(row(m_running), 0);
    select({m_running});
    m_controller->virtualMachinesController()->find(m_running)->setName(u"zero"_s);
    EXPECT_TRUE(waitUntil([this] { return row(m_running) == 2; }));
    EXPECT_EQ(table()->selectedRows(), QList<int>({2})) << "it stays selected";
}

TEST_F(WelcomeWindowTest, everyColumnStaysInSightInTheSmallestWindow)
{
    window()->resize(1200, 600);
    ASSERT_TRUE(waitUntil([this] { return table()->viewport()->width() > 1000; }));
    for (const int column : {1, 2})
        table()->horizontalHeader()->resizeSection(column, 400);
    window()->resize(window()->minimumSize());
    ASSERT_TRUE(waitUntil([this] { return table()->viewport()->width() < 500; }));
    const auto *header = table()->horizontalHeader();
    EXPECT_GE(header->sectionSize(0), 140);
    EXPECT_LE(header->length(), table()->viewport()->width());
}

TEST_F(WelcomeWindowTest, menuItemsFollowTheShownStatuses)
{
    select({m_running});
    EXPECT_TRUE(isEnabled("stopVirtualMachine:") && !isEnabled("openDocument:"));
    select({m_stopped});
    EXPECT_TRUE(!isEnabled("stopVirtualMachine:") && isEnabled("openDocument:"));
    const auto *menu = window()->findChild<QMenu *>(u"virtualMachineMenu"_s);
    QTest::mouseClick(window()->windowHandle(), Qt::RightButton, {},
                      table()->viewport()->mapTo(window(), rowOf(m_running)));
    EXPECT_TRUE(waitUntil([&] { return menu->isVisible(); }));
    EXPECT_EQ(table()->selectedRows(), QList<int>({row(m_running)}));
    QTest::keyClick(window()->windowHandle(), Qt::Key_Escape);
    EXPECT_TRUE(waitUntil([&] { return !menu->isVisible(); }));
    QTest::keyClick(table(), Qt::Key_Escape);
    EXPECT_TRUE(!isEnabled("delete:") && isEnabled("performClose:"));
    EXPECT_TRUE(waitUntil(
        [&] { return !window()->findChild<QPushButton *>(u"startButton"_s)->isEnabled(); }));
}

TEST_F(WelcomeWindowTest, theCloseButtonShowsUnderThePointerAndTheLayoutIsKept)
{
    auto *button = window()->findChild<WelcomeWindowCloseButton *>(u"closeButton"_s);
    QWidget *area = window()->findChild<QWidget *>(u"infoView"_s);
    const auto enter = [](QWidget *widget) {
        QEnterEvent event(QPointF(1, 1), QPointF(1, 1), widget->mapToGlobal(QPointF(1, 1)));
        QApplication::sendEvent(widget, &event);
    };
    QEvent leave(QEvent::Leave);
    EXPECT_TRUE(button->isHidden());
    enter(area);
    EXPECT_FALSE(button->isHidden());
    const QImage rest = button->icon().pixmap(20, 20).toImage();
    enter(button);
    EXPECT_NE(button->icon().pixmap(20, 20).toImage(), rest);
    QApplication::sendEvent(button, &leave);
    EXPECT_EQ(button->icon().pixmap(20, 20).toImage(), rest);
    window()->resize(777, 555);
    table()->setColumnWidth(1, 144);
    QApplication::sendEvent(area, &leave);
    EXPECT_TRUE(button->isHidden()) << "the new area takes the pointer as inside";
    enter(area);
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_FALSE(window()->isVisible());
    m_controller.reset();
    open();
    m_controller->showWindow();
    EXPECT_EQ(window()->size(), QSize(777, 555));
    EXPECT_EQ(table()->columnWidth(1), 144);
}

using ProgressSheet = ApplicationTest;

TEST_F(ProgressSheet, spinsUntilTheFirstProgress)
{
    const std::unique_ptr<LongRunningOperationWindowController> operation(
        LongRunningOperationWindowController::controller());
    const ProgressIndicator *indicator = operation->progressIndicator();
    EXPECT_TRUE(waitUntil([&] { return indicator->isAnimating(); }));
    operation->setProgress(0);
    operation->setProgress(-3);
    EXPECT_TRUE(indicator->isAnimating());
    operation->setProgress(12.5);
    EXPECT_EQ(indicator->style(), ProgressIndicator::Style::bar);
    EXPECT_EQ(indicator->value(), 12);
    operation->setProgress(0);
    operation->setProgress(1000);
    EXPECT_EQ(indicator->value(), 100);
}
