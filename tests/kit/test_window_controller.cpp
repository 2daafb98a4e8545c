#include "app/kit/Alert.h"
#include "app/kit/FrameClock.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "tests/kit/application.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

class Controller : public WindowController
{
public:
    QStringList events;
    bool mayClose = true;

    Controller() { setWindow(new QWidget); }

protected:
    bool windowShouldClose() override { return mayClose; }
    void windowWillClose() override { events << u"controller"_s; }
};

using WindowControllerTest = ApplicationTest;

} // namespace

TEST_F(WindowControllerTest, announcesItsCloseBeforeItActsOnIt)
{
    Controller controller;
    QWidget *announced = nullptr;
    NotificationCenter::defaultCenter().addObserver(
        &controller, WindowWillCloseNotification, [&](const Notification &closing) {
            announced = closing.object.value<QWidget *>();
            controller.events << u"observer"_s;
        });
    controller.showWindow();
    controller.mayClose = false;
    controller.close();
    EXPECT_TRUE(controller.window()->isVisible());
    EXPECT_TRUE(controller.events.isEmpty());
    controller.mayClose = true;
    controller.close();
    EXPECT_FALSE(controller.window()->isVisible());
    EXPECT_EQ(announced, controller.window());
    EXPECT_EQ(controller.events, (QStringList{u"observer"_s, u"controller"_s}));
}

TEST_F(WindowControllerTest, sheetAnswersOnceAndEndsWithItsWindow)
{
    Controller controller;
    controller.showWindow();
    QDialog sheet;
    QList<int> codes;
    controller.beginSheet(&sheet, [&](int code) { codes << code; });
    EXPECT_EQ(WindowController::attachedSheet(controller.window()), &sheet);
    sheet.done(SheetContinue);
    EXPECT_EQ(WindowController::attachedSheet(controller.window()), nullptr);
    controller.beginSheet(&sheet, [&](int code) { codes << code; });
    controller.close();
    EXPECT_EQ(codes, (QList<int>{SheetContinue, SheetStop}));
}

TEST_F(WindowControllerTest, alertAnswersWithTheButtonsPlace)
{
    Controller controller;
    controller.showWindow();
    int result = 0;
    const auto ask = [&] {
        return Alert(u"<b>Delete?</b>"_s)
            .addButton(u"Delete"_s)
            .addButton(u"Cancel"_s)
            .beginSheet(controller.window(), [&](int answer) { result = answer; });
    };
    QMessageBox *box = ask();
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
    box->findChild<QPushButton *>(u"alertButton1"_s)->click();
    EXPECT_EQ(result, AlertFirstButton);
    QTest::keyClick(ask(), Qt::Key_Escape);
    EXPECT_EQ(result, AlertFirstButton + 1);
}

TEST_F(WindowControllerTest, frameClockTicksOnlyWhenAskedAndMergesRequests)
{
    FrameClock clock;
    int ticks = 0;
    QObject::connect(&clock, &FrameClock::ticked, &clock, [&] { ++ticks; });
    clock.requestTick();
    EXPECT_FALSE(waitUntil([&] { return ticks > 0; }, 100)) << "not started";
    clock.start();
    clock.requestTick();
    ASSERT_TRUE(waitUntil([&] { return ticks > 0; }));
    EXPECT_FALSE(waitUntil([&] { return ticks > 1; }, 100)) << "nobody asked again";
    QElapsedTimer timer;
    timer.start();
    while (ticks < 11) {
        clock.requestTick();
        ASSERT_TRUE(waitUntil([&, before = ticks] { return ticks > before; }));
    }
    EXPECT_GE(timer.elapsed(), 9 * 16) << "faster than the screen";
}
