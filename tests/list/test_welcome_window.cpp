#include "app/kit/MainMenu.h"
#include "app/kit/Responder.h"
#include "app/kit/UserDefaults.h"
#include "app/list/LongOperationWindow.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindow.h"
#include "app/list/WelcomeWindowController.h"
#include "app/shell/TarvVM.h"
#include "tests/list/fixture.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {
// A list of three: "one" runs, "three" is suspended, "two" is stopped.
class WelcomeWindowTest : public ListTest
{
protected:
    void SetUp() override
    {
        ListTest::SetUp();
        startLaunchService();
        m_one = addVM(u"one"_s);
        m_two = addVM(u"two"_s);
        m_three = addVM(u"three"_s, u"state_file: s.img\n"_s);
        supervise(m_one);
        open();
    }

    void TearDown() override
    {
        TarvVM::setDisplayOpener({});
        m_controller.reset();
        ListTest::TearDown();
    }

    void open()
    {
        m_controller.reset(WelcomeWindowController::controller());
        m_controller->showWindow();
        m_reloads = std::make_unique<QSignalSpy>(m_controller.get(),
                                                 &WelcomeWindowController::listReloaded);
        const auto *list = m_controller->virtualMachinesController();
        ASSERT_TRUE(waitFor([&] {
            return list->count() == 3 && !list->shownStatus(list->find(m_one)).isNull() &&
                   !list->shownStatus(list->find(m_two)).isNull() &&
                   !list->shownStatus(list->find(m_three)).isNull();
        }));
        ASSERT_TRUE(QTest::qWaitForWindowActive(window()));
    }

    QWidget *window() const { return m_controller->window(); }
    VirtualMachinesTable *table() const { return m_controller->virtualMachinesTableView(); }

    void select(const QStringList &ids)
    {
        table()->clearSelection();
        for (const QString &id : ids) {
            const auto *list = m_controller->virtualMachinesController();
            const auto row = list->arrangedObjects().indexOf(list->find(id));
            table()->selectionModel()->setCurrentIndex(list->index(static_cast<int>(row), 0),
                                                       QItemSelectionModel::Select |
                                                           QItemSelectionModel::Rows);
        }
    }

    QPoint rowOf(const QString &id) const
    {
        const auto *list = m_controller->virtualMachinesController();
        const auto row = static_cast<int>(list->arrangedObjects().indexOf(list->find(id)));
        return table()->visualRect(list->index(row, 0)).center();
    }

    bool isEnabled(const char *action) const
    {
        return Responder::validate(
            window(), MainMenu::of(window())->itemWithAction(QString::fromLatin1(action)));
    }

    // The sheet of this kind, once it is shown.
    template <class Sheet>
    Sheet *waitForSheet() const
    {
        Sheet *sheet = nullptr;
        waitFor([&] {
            sheet = window()->findChild<Sheet *>();
            return sheet && sheet->isVisible();
        });
        return sheet;
    }

    QString m_one, m_two, m_three;
    std::unique_ptr<WelcomeWindowController> m_controller;
    std::unique_ptr<QSignalSpy> m_reloads;
};
} // namespace

TEST_F(WelcomeWindowTest, doubleClickStartsOneVM)
{
    select({m_three});
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {}, rowOf(m_two));
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded().last(), u"start -uv "_s + m_two) << "no add-ons: forced";

    // A click below the last row starts nothing; a double-clicked running VM shows its screen.
    QString opened;
    TarvVM::setDisplayOpener([&](const QString &path, int) { opened = path; });
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {},
                       QPoint(10, table()->viewport()->height() - 5));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, Qt::AltModifier, rowOf(m_one));
    ASSERT_TRUE(waitFor([&] { return !opened.isEmpty(); }));
    EXPECT_TRUE(opened.contains(m_one));
    EXPECT_EQ(recorded().size(), 1);
}

TEST_F(WelcomeWindowTest, returnStartsAllSelectedVMs)
{
    select({m_two, m_three});
    table()->setFocus();
    QTest::keyClick(table(), Qt::Key_Return);
    ASSERT_TRUE(waitForRecorded(2));
    // Each start is a process of its own: their order is that of the launches, not of the lines.
    QStringList got = recorded();
    QStringList expected = {u"start -fv "_s + m_three, u"start -fv "_s + m_two};
    got.sort();
    expected.sort();
    EXPECT_EQ(got, expected);
}

TEST_F(WelcomeWindowTest, commandsPassTheVMsThatTheyAreFor)
{
    const struct
    {
        void (WelcomeWindowController::*action)(QObject *);
        QString command;
        QString title;
    } cases[] = {
        {&WelcomeWindowController::stopVirtualMachine, u"stop "_s + m_one, u"Stopping ..."_s},
        {&WelcomeWindowController::forceStopVirtualMachine,
         u"stop --force %1 %2"_s.arg(m_one, m_three), u"Stopping ..."_s},
        {&WelcomeWindowController::suspendVirtualMachine, u"suspend "_s + m_one,
         u"Suspending ..."_s},
        {&WelcomeWindowController::rebootVirtualMachine, u"suspend "_s + m_one, u"Rebooting ..."_s},
    };
    int count = 0;
    for (const auto &c : cases) {
        select({m_one, m_two, m_three});
        const auto reloads = m_reloads->count();
        (m_controller.get()->*c.action)(nullptr);
        const auto *sheet = waitForSheet<LongOperationWindow>();
        ASSERT_TRUE(sheet);
        EXPECT_EQ(sheet->windowTitle(), c.title);
        ASSERT_TRUE(waitForRecorded(++count));
        EXPECT_EQ(recorded().last(), c.command);
        EXPECT_TRUE(waitFor([&] {
            return m_reloads->count() > reloads && !WindowController::attachedSheet(window());
        }));
    }
    select({m_two});
    m_controller->stopVirtualMachine();
    EXPECT_FALSE(QTest::qWaitFor([&] { return recorded().size() > count; }, 300)) << "none runs";
}

TEST_F(WelcomeWindowTest, aVMThatDoesNotAnswerHoldsUpNoCommand)
{
    supervise(m_two, Supervisor::silent);
    select({m_one, m_two});
    m_controller->stopVirtualMachine();
    m_controller->stopVirtualMachine(); // one is being prepared
    ASSERT_TRUE(waitForSheet<LongOperationWindow>());
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded(), QStringList(u"stop "_s + m_one));
}

TEST_F(WelcomeWindowTest, copiesAndClonesUnderANewName)
{
    select({m_two});
    m_controller->copyVirtualMachine();
    ASSERT_TRUE(waitForRecorded(1));
    EXPECT_EQ(recorded().last(), u"clone --copy %1 two_copy"_s.arg(m_two));
    EXPECT_TRUE(waitFor([&] { return !WindowController::attachedSheet(window()); }));
    m_controller->cloneVirtualMachine();
    ASSERT_TRUE(waitForRecorded(2));
    EXPECT_EQ(recorded().last(), u"clone %1 two_copy"_s.arg(m_two));
    EXPECT_FALSE(WindowController::attachedSheet(window()));
    table()->clearSelection();
    m_controller->copyVirtualMachine();
    m_controller->cloneVirtualMachine();
    EXPECT_FALSE(QTest::qWaitFor([&] { return recorded().size() > 2; }, 300));
}

TEST_F(WelcomeWindowTest, cancelledSheetEndsTheCommand)
{
    controllerHangs();
    select({m_one});
    m_controller->stopVirtualMachine();
    auto *sheet = waitForSheet<LongOperationWindow>();
    ASSERT_TRUE(waitForRecorded(1));
    const auto reloads = m_reloads->count();
    QTest::keyClick(sheet, Qt::Key_Escape);
    // The command has ended by its signal, which the runner reports, modally without a key window.
    bool reported = false;
    QTimer dismiss;
    QObject::connect(&dismiss, &QTimer::timeout, &dismiss, [&] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (auto *alert = qobject_cast<QMessageBox *>(widget); alert && alert->isVisible()) {
                reported = true;
                QTest::keyClick(alert, Qt::Key_Escape);
            }
        }
    });
    dismiss.start(10);
    EXPECT_TRUE(waitFor([&] { return reported; }));
    dismiss.stop();
    EXPECT_FALSE(QTest::qWaitFor([&] { return m_reloads->count() > reloads; }, 300));
}

TEST_F(WelcomeWindowTest, deleteAsksFirst)
{
    const auto answer = [this](const QString &question, const QString &button) {
        auto *alert = waitForSheet<QMessageBox>();
        ASSERT_TRUE(alert);
        EXPECT_EQ(alert->text(), question);
        QTest::mouseClick(alert->findChild<QPushButton *>(button), Qt::LeftButton);
        ASSERT_TRUE(waitFor([&] { return !window()->findChild<QMessageBox *>(); }));
    };
    m_controller->delete_();
    EXPECT_FALSE(WindowController::attachedSheet(window())) << "nothing is selected";
    select({m_two});
    table()->setFocus();
    QTest::keyClick(table(), Qt::Key_Delete);
    answer(u"Are you sure you want to delete two?"_s, u"alertButton2"_s);
    select({m_one, m_two, m_three});
    const auto reloads = m_reloads->count();
    m_controller->delete_();
    answer(u"Are you sure you want to delete 3 VMs?"_s, u"alertButton1"_s);
    ASSERT_TRUE(waitFor([&] { return m_reloads->count() > reloads; }));
    EXPECT_EQ(recorded(), QStringList(u"delete --yes %1 %2 %3"_s.arg(m_one, m_three, m_two)));
}

TEST_F(WelcomeWindowTest, menuItemsFollowTheShownStatuses)
{
    select({m_one});
    EXPECT_FALSE(isEnabled("openDocument:"));
    EXPECT_TRUE(isEnabled("stopVirtualMachine:"));
    select({m_two});
    EXPECT_TRUE(isEnabled("openDocument:"));
    EXPECT_FALSE(isEnabled("stopVirtualMachine:"));
    EXPECT_TRUE(isEnabled("delete:"));
    QTest::keyClick(table(), Qt::Key_Escape);
    EXPECT_FALSE(isEnabled("delete:"));
    EXPECT_TRUE(isEnabled("performClose:"));
    EXPECT_TRUE(waitFor(
        [&] { return !window()->findChild<QPushButton *>(u"startButton"_s)->isEnabled(); }));
}
