#include "app/display/TarvWindow.h"
#include "app/kit/Alert.h"
#include "app/kit/MenuItemForEvent.h"
#include "app/kit/WindowController.h"
#include "app/shell/TarvApplication.h"
#include "tarvhv/display/TarvDisplayView.h"
#include "tests/app/fixtures/shell_fixture.h"

#include <QDialog>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLayout>
#include <QMenu>
#include <QTest>
#include <QWindow>

using namespace Qt::StringLiterals;

// Where the guest would be shown: keeps the keys that it gets.
class Guest : public QWidget
{
public:
    QStringList seen;

    bool focusNextPrevChild(bool) override { return false; }

protected:
    void keyPressEvent(QKeyEvent *event) override { note("press", event); }
    void keyReleaseEvent(QKeyEvent *event) override { note("release", event); }

private:
    void note(const char *what, const QKeyEvent *event)
    {
        if (event->key() == Qt::Key_Control || event->key() == Qt::Key_Alt)
            return;
        seen << QLatin1String(what) + QLatin1Char(' ') +
                    QKeySequence(event->key()).toString(QKeySequence::PortableText);
    }
};

namespace {

// Keys are routed by the application object.
[[maybe_unused]] const bool g_set =
    (testApplicationMaker = [](int &argc, char **argv) -> QApplication * {
        return new TarvApplication(argc, argv);
    });

class DisplayController : public WindowController
{
    Q_OBJECT

public:
    Guest *display = new Guest;
    QElapsedTimer clock;
    QList<qint64> copies;
    bool mayPaste = true;

    DisplayController()
    {
        auto *shown = new TarvWindow(TarvWindow::Interface::tarvWindow);
        shown->centralWidget()->layout()->addWidget(display);
        display->setFocusPolicy(Qt::StrongFocus);
        display->setFocus();
        setWindow(shown);
        clock.start();
    }
    bool validateMenuItem(QAction *item) override
    {
        return item->property("action").toString() != "paste:"_L1 || mayPaste;
    }
    Q_INVOKABLE void paste(QObject *) { display->seen << u"paste"_s; }
    Q_INVOKABLE void copy(QObject *) { copies << clock.elapsed(); }
    Q_INVOKABLE void openDocument(QObject *) { display->seen << u"menu"_s; }
};

class KeyboardRoutingTest : public ShellTest
{
protected:
    DisplayController controller;
    QWindow *window = nullptr;

    KeyboardRoutingTest()
    {
        controller.showWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(controller.window()));
        window = controller.window()->windowHandle();
    }
    QStringList &seen() { return controller.display->seen; }
};

} // namespace

TEST_F(KeyboardRoutingTest, pasteComesBeforeTheKeyOnPressAndRelease)
{
    QTest::keyClick(window, Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(seen(), (QStringList{u"paste"_s, u"press V"_s, u"paste"_s, u"release V"_s}));
    seen().clear();
    controller.mayPaste = false;
    QTest::keyClick(window, Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(seen(), (QStringList{u"press V"_s, u"release V"_s}));
}

TEST_F(KeyboardRoutingTest, otherShortcutsAreTheGuestsUnlessASheetIsUp)
{
    for (const Qt::Key key : {Qt::Key_Q, Qt::Key_O})
        QTest::keyClick(window, key, Qt::ControlModifier);
    EXPECT_EQ(seen(), (QStringList{u"press Q"_s, u"release Q"_s, u"press O"_s, u"release O"_s}));
    seen().clear();
    QDialog sheet;
    controller.beginSheet(&sheet, {});
    QTest::keyClick(window, Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(seen().count(u"paste"_s), 0);
}

TEST_F(KeyboardRoutingTest, aHeldReturnAnswersOneQuestionButRepeatsInTheGuest)
{
    const auto hold = [](QWindow *receiver) {
        for (int i = 0; i < 3; i++) {
            QKeyEvent event(QEvent::KeyPress, Qt::Key_Return, {}, u"\r"_s, /*autorep=*/true);
            QCoreApplication::sendEvent(receiver, &event);
        }
    };
    hold(window);
    EXPECT_EQ(seen().count(u"press Return"_s), 3);
    int answered = 0;
    QMessageBox *alert =
        Alert(u"?"_s).addButton(u"Delete"_s).beginSheet(controller.window(), [&](int) {
            answered++;
        });
    ASSERT_TRUE(QTest::qWaitForWindowActive(alert));
    hold(alert->windowHandle());
    EXPECT_EQ(answered, 0);
    QTest::keyClick(alert->windowHandle(), Qt::Key_Return);
    EXPECT_EQ(answered, 1);
}

TEST_F(KeyboardRoutingTest, copyComesAfterTheKeyOnPressAndRelease)
{
    controller.clock.start();
    QTest::keyClick(window, Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(seen().size(), 2);
    EXPECT_TRUE(controller.copies.isEmpty());
    ASSERT_TRUE(waitUntil([this] { return controller.copies.size() == 2; }));
    EXPECT_GE(controller.copies[0], 195);
}

TEST_F(KeyboardRoutingTest, theFirstItemThatMatchesDecides)
{
    QMenuBar bar;
    QMenu *first = bar.addMenu(u"first"_s);
    QAction *nested = first->addMenu(u"nested"_s)->addAction(u"a"_s);
    QAction *later = bar.addMenu(u"second"_s)->addAction(u"b"_s);
    const QKeySequence shortcut(u"Ctrl+C"_s);
    nested->setShortcut(shortcut);
    later->setShortcut(shortcut);
    const auto item = [&](Qt::Key key, Qt::KeyboardModifiers modifiers) {
        const QKeyEvent event(QEvent::KeyPress, key, modifiers);
        return NSMenuItemForEvent(&bar, &event);
    };
    EXPECT_EQ(item(Qt::Key_C, Qt::ControlModifier), nested);
    nested->setEnabled(false);
    EXPECT_EQ(item(Qt::Key_C, Qt::ControlModifier), nullptr) << "the search ends here";
    nested->setShortcut(QKeySequence());
    EXPECT_EQ(item(Qt::Key_C, Qt::ControlModifier), later);
    EXPECT_EQ(item(Qt::Key_C, Qt::ControlModifier | Qt::KeypadModifier), nullptr);
    EXPECT_EQ(item(Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier), nullptr);
    EXPECT_EQ(item(Qt::Key_X, Qt::ControlModifier), nullptr);
}

#include "test_keyboard_routing.moc"
