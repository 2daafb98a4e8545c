#include "app/kit/NotificationCenter.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "tests/app/kit/application.h"

#include <gtest/gtest.h>

#include <QDialog>

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
        &controller, WINDOW_WILL_CLOSE, [&](const Notification &closing) {
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
    sheet.done(SHEET_CONTINUE);
    EXPECT_EQ(WindowController::attachedSheet(controller.window()), nullptr);
    controller.beginSheet(&sheet, [&](int code) { codes << code; });
    controller.close();
    EXPECT_EQ(codes, (QList<int>{SHEET_CONTINUE, SHEET_STOP}));
}
