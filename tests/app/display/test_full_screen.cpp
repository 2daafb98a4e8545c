// Full screen: when it is entered, what goes on around it, and the menu over the picture.
#include "app/kit/MainMenu.h"
#include "app/kit/Responder.h"
#include "tests/app/display/display_fixture.h"

#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

std::string asked(QSize size)
{
    return "size " + std::to_string(size.width()) + " " + std::to_string(size.height()) + " 0";
}

class FullScreen : public DisplayWindow
{
protected:
    void openAndWatch(int width, int height)
    {
        open(width, height);
        m_changes = std::make_unique<QSignalSpy>(m_window, &TarvWindow::fullScreenDidChange);
    }
    QSize screenSize() const { return m_window->screen()->size(); }
    QMenuBar *menu() const { return MainMenu::of(m_window); }
    bool perform()
    {
        return Responder::perform(m_window,
                                  MainMenu::of(m_window)->itemWithAction(u"toggleFullScreen:"_s));
    }
    // Waits for the end of a change and returns what it asked of the guest.
    std::string changed(bool entered)
    {
        EXPECT_TRUE(waitUntil([&] { return m_changes->size() == 1; }));
        EXPECT_EQ(m_changes->value(0).value(0), QVariant(entered));
        m_changes->clear();
        return m_display->taken();
    }
    void answer(const char *button)
    {
        auto *alert = qobject_cast<QMessageBox *>(WindowController::attachedSheet(m_window));
        ASSERT_NE(alert, nullptr);
        EXPECT_EQ(alert->text(), u"Live Resolution will be turned on"_s);
        EXPECT_EQ(alert->informativeText(),
                  u"Upon switching to Full Screen, Live Resolution will be turned on"_s);
        alert->findChild<QPushButton *>(QLatin1String(button))->click();
        EXPECT_TRUE(waitUntil([&] { return !WindowController::attachedSheet(m_window); }));
    }
    void pointAt(int y)
    {
        TarvDisplayView *view = m_controller->view();
        const QPoint place(50, y);
        QMouseEvent move(QEvent::MouseMove, place, view->mapToGlobal(place), Qt::NoButton,
                         Qt::NoButton, Qt::NoModifier);
        QCoreApplication::sendEvent(view, &move);
    }

    std::unique_ptr<QSignalSpy> m_changes;
};

TEST_F(FullScreen, asksTheGuestForTheScreenAndForTheWindowAgain)
{
    UserDefaults::standard().setBool(u"liveResize"_s, true);
    openAndWatch(640, 400);
    ASSERT_TRUE(perform()) << "the menu offers it";
    EXPECT_TRUE(m_window->isFullScreen());
    EXPECT_EQ(changed(true), asked(screenSize()));
    EXPECT_EQ(viewSize(), screenSize()) << "the menu bar takes nothing of it";
    m_display->setSize(screenSize().width(), screenSize().height());
    ASSERT_TRUE(perform());
    EXPECT_FALSE(m_window->isFullScreen());
    EXPECT_EQ(changed(false), asked(QSize(640, 400)));
    EXPECT_EQ(viewSize(), QSize(640, 400));
}

TEST_F(FullScreen, isLeftWhenTheGuestTakesAnotherSize)
{
    UserDefaults::standard().setBool(u"liveResize"_s, true);
    openAndWatch(640, 400);
    m_window->toggleFullScreen(nullptr);
    m_display->setSize(700, 500); // of before
    changed(true);
    m_display->setSize(screenSize().width(), screenSize().height());
    m_display->paint(QRect(1, 1, 5, 5), Qt::red);
    EXPECT_TRUE(m_window->isFullScreen());
    m_display->setSize(500, 300);
    EXPECT_FALSE(m_window->isFullScreen());
    changed(false);
    EXPECT_EQ(viewSize(), QSize(500, 300));
}

TEST_F(FullScreen, asksTheUserBeforeAGuestHasToFollow)
{
    openAndWatch(640, 400);
    ASSERT_TRUE(perform());
    EXPECT_FALSE(m_window->isFullScreen());
    answer("alertButton2"); // Cancel
    EXPECT_FALSE(m_controller->liveResize());
    ASSERT_TRUE(perform());
    answer("alertButton1"); // Switch
    EXPECT_TRUE(m_controller->liveResize());
    EXPECT_TRUE(waitUntil([&] { return m_window->isFullScreen(); }));
    changed(true);
}

TEST_F(FullScreen, isRefusedWithoutAWordToAGuestThatCannotFollow)
{
    openAndWatch(640, 400);
    m_display->resizable = false;
    m_window->toggleFullScreen(nullptr);
    EXPECT_FALSE(m_window->isFullScreen());
    EXPECT_EQ(m_window->findChild<QMessageBox *>(), nullptr);
    // It is entered where it fits, and left however things have changed.
    m_display->setSize(screenSize().width(), screenSize().height());
    m_window->toggleFullScreen(nullptr);
    EXPECT_TRUE(m_window->isFullScreen());
    changed(true);
    m_display->image = m_display->image.copy(0, 0, 100, 100);
    m_window->toggleFullScreen(nullptr);
    EXPECT_FALSE(m_window->isFullScreen());
}

TEST_F(FullScreen, lowersTheMenuWhereThePointerAsksForIt)
{
    UserDefaults::standard().setBool(u"liveResize"_s, true);
    openAndWatch(640, 400);
    for (const bool hides : {false, true}) {
        UserDefaults::standard().setBool(u"HideMenuBarInFullScreen"_s, hides);
        m_window->toggleFullScreen(nullptr);
        changed(true);
        EXPECT_FALSE(menu()->isVisible());
        pointAt(0);
        EXPECT_NE(menu()->isVisible(), hides);
        EXPECT_EQ(viewSize(), screenSize()) << "it lies over the picture";
        pointAt(200);
        EXPECT_FALSE(menu()->isVisible());
        m_window->toggleFullScreen(nullptr);
        changed(false);
        EXPECT_TRUE(menu()->isVisible());
        EXPECT_EQ(m_controller->view()->mapTo(m_window, QPoint()).y(), menu()->height());
    }
}

TEST_F(FullScreen, opensTheMenuForTheKeyboardAlone)
{
    UserDefaults::standard().setBool(u"liveResize"_s, true);
    UserDefaults::standard().setBool(u"HideMenuBarInFullScreen"_s, true);
    openAndWatch(640, 400);
    m_window->toggleFullScreen(nullptr);
    changed(true);
    TarvDisplayView *view = m_controller->view();
    const auto chord = [view](std::initializer_list<int> keys) {
        for (const int key : keys)
            QTest::keyPress(view, Qt::Key(key));
        for (const int key : keys)
            QTest::keyRelease(view, Qt::Key(key));
    };
    chord({Qt::Key_Control, Qt::Key_Alt, Qt::Key_T});
    chord({Qt::Key_Control});
    EXPECT_FALSE(menu()->isVisible()) << "those are the guest's";
    chord({Qt::Key_Alt, Qt::Key_Control});
    EXPECT_TRUE(menu()->isVisible());
    ASSERT_NE(QApplication::activePopupWidget(), nullptr);
    QApplication::activePopupWidget()->close();
    EXPECT_NE(m_display->taken().find("key 56 0"), std::string::npos) << "and nothing stays down";
}

} // namespace
