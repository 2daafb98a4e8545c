#include "app/kit/MainMenu.h"
#include "app/kit/Responder.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindowCloseButton.h"
#include "app/model/TarvVM.h"
#include "app/progress/LongRunningOperationWindowController.h"
#include "app/progress/ProgressIndicator.h"
#include "tests/app/fixtures/list_fixture.h"

#include <QApplication>
#include <QLineEdit>
#include <QMenu>
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

    // A click below the last row starts nothing; a double-clicked running VM shows its screen.
    QString opened;
    TarvVM::setDisplayOpener([&](const QString &path, int) { opened = path; });
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {},
                       QPoint(10, table()->viewport()->height() - 5));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, Qt::AltModifier, rowOf(m_running));
    ASSERT_TRUE(waitUntil([&] { return !opened.isEmpty(); }));
    EXPECT_TRUE(opened.contains(m_running));
    EXPECT_EQ(recorded().size(), 1);
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
