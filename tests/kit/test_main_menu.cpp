#include "app/kit/MainMenu.h"
#include "app/kit/Responder.h"
#include "app/kit/WindowController.h"
#include "tests/kit/application.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QLineEdit>
#include <QMenu>
#include <QTest>
#include <QVBoxLayout>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace {

class ListController : public WindowController
{
    Q_OBJECT

public:
    QStringList done;
    bool mayDelete = false;
    QLineEdit *field = nullptr;

    ListController()
    {
        auto *widget = new QWidget;
        auto *layout = new QVBoxLayout(widget);
        field = new QLineEdit(widget);
        layout->addWidget(field);
        MainMenu::installIn(widget);
        setWindow(widget);
    }
    bool validateMenuItem(QAction *item) override
    {
        return Responder::actionOf(item) != "delete:"_L1 || mayDelete;
    }
    Q_INVOKABLE void delete_(QObject *) { done << u"delete"_s; }
    Q_INVOKABLE void openDocument(QObject *) { done << u"open"_s; }
    MainMenu *menu() const { return MainMenu::of(window()); }
    QAction *item(const char *action) const
    {
        return menu()->itemWithAction(QLatin1String(action));
    }
};

class Delegate : public QObject
{
    Q_OBJECT

public:
    int shown = 0;
    Q_INVOKABLE void showWelcomeWindow(QObject *) { ++shown; }
    Q_INVOKABLE void openDocument(QObject *) { FAIL() << "the window's controller comes first"; }
};

struct MainMenuTest : ApplicationTest
{
    MainMenuTest()
    {
        Responder::setApplicationDelegate(&delegate);
        controller.showWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(controller.window()));
    }
    Delegate delegate;
    ListController controller;
};

} // namespace

TEST_F(MainMenuTest, itemsActOnTheFirstThatHasTheAction)
{
    controller.item("openDocument:")->trigger();
    controller.item("showWelcomeWindow:")->trigger();
    EXPECT_EQ(controller.done, QStringList{u"open"_s});
    EXPECT_EQ(delegate.shown, 1);
}

TEST_F(MainMenuTest, aMenuThatOpensShowsWhatCanBeDone)
{
    QAction *remove = controller.item("delete:");
    QMenu *menu = qobject_cast<QMenu *>(remove->associatedObjects().value(0));
    ASSERT_TRUE(menu);
    Q_EMIT menu->aboutToShow();
    EXPECT_FALSE(remove->isEnabled());
    Q_EMIT menu->aboutToHide();
    controller.mayDelete = true;
    Q_EMIT menu->aboutToShow();
    EXPECT_TRUE(remove->isEnabled());
    EXPECT_FALSE(Responder::validate(controller.window(), controller.item("zoomIn:")))
        << "nobody here has it";
}

TEST_F(MainMenuTest, shortcutsAreValidatedWhenTheyFire)
{
    QWindow *window = controller.window()->windowHandle();
    QTest::keyClick(window, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_TRUE(controller.done.isEmpty());
    controller.field->clearFocus();
    controller.mayDelete = true;
    QTest::keyClick(window, Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_EQ(controller.done, QStringList{u"delete"_s});
}

TEST_F(MainMenuTest, editsTheTextFieldThatHasTheFocus)
{
    controller.field->setFocus();
    controller.field->setText(u"abc"_s);
    EXPECT_FALSE(Responder::validate(controller.window(), controller.item("copy:")));
    controller.item("selectAll:")->trigger();
    controller.item("copy:")->trigger();
    EXPECT_EQ(QApplication::clipboard()->text(), u"abc"_s);
}

TEST_F(MainMenuTest, restrictionHidesAllButTheFirstMenuAlsoOfLaterWindows)
{
    MainMenu::setRestricted(true);
    ListController later;
    for (const ListController *each : {&controller, &later}) {
        const QList<QAction *> menus = each->menu()->actions();
        EXPECT_TRUE(menus[0]->isVisible());
        for (qsizetype i = 1; i < menus.size(); ++i)
            EXPECT_FALSE(menus[i]->isVisible());
    }
    controller.mayDelete = true;
    QTest::keyClick(controller.window()->windowHandle(), Qt::Key_Backspace, Qt::ControlModifier);
    EXPECT_TRUE(controller.done.isEmpty()) << "a hidden menu's shortcut acts";
    MainMenu::setRestricted(false);
    EXPECT_TRUE(later.menu()->actions().constLast()->isVisible());
}

#include "test_main_menu.moc"
