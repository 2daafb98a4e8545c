#include "app/agreement/EULAWindowController.h"
#include "app/agreement/TarvCLI.h"
#include "tests/app/fixtures/fake_service.h"
#include "tests/app/fixtures/shell_fixture.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTextBrowser>

#include <cerrno>
#include <string>

#include <unistd.h>

using namespace Qt::StringLiterals;

using AgreementTest = ShellTest;

TEST_F(AgreementTest, aRefusalIsShownOnTheWindowAndOnlySuccessClosesIt)
{
    bool right = false;
    const auto accept = [&](TarvError *error) {
        error->description = u"The administrator right was refused"_s;
        return right;
    };
    EULAWindowController controller(QStringLiteral(LICENSE_TEXT), accept);
    controller.showWindow();
    const auto *text = controller.window()->findChild<QTextBrowser *>(u"eulaView"_s);
    EXPECT_EQ(text->document()->find(u"Tarv Agreement"_s).charFormat().fontWeight(), QFont::Bold);
    auto *button = controller.window()->findChild<QPushButton *>(u"acceptButton"_s);
    button->click();
    EXPECT_FALSE(button->isEnabled()) << "once at a time";
    const auto sheet = [&] {
        return qobject_cast<QMessageBox *>(WindowController::attachedSheet(controller.window()));
    };
    ASSERT_TRUE(waitUntil([&] { return sheet() != nullptr; }));
    EXPECT_EQ(sheet()->text(), u"The administrator right was refused"_s);
    sheet()->buttons().constFirst()->click();
    right = true;
    button->click();
    EXPECT_TRUE(waitUntil([&] { return controller.window()->isHidden(); }));
}

TEST_F(AgreementTest, asksTheLaunchServiceAndPassesItsErrorOn)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "the administrator right can't be had here";
    const QString socket = path(u"launch.sock"_s);
    setSettings(u"vlaunch_sock = "_s + socket);
    TarvError error;
    // Nobody listens: the controller is asked to start the service, which this one does not.
    EXPECT_FALSE(TarvCLI::acceptEULA(&error));
    EXPECT_EQ(error.domain, u"POSIX"_s);
    EXPECT_EQ(error.code, ENOENT);
    EXPECT_EQ(recordedArguments(), QStringList{u"ping"_s});
    EXPECT_TRUE(error.description.contains(socket));
    EXPECT_TRUE(
        log().contains(u" ctl: %1: vlaunchd service unavailable: No such file"_s.arg(socket)));

    struct
    {
        const char *answer;
        bool accepted;
        int64_t code;
        const char *description;
    } const cases[] = {
        {"{\"status\":\"ok\"}\r\n", true, 0, ""},
        {"{\"status\":\"ERROR\",\"error\":30,\"message\":\"read only\"}\r\n", false, 30,
         "read only"},
        {"{\"status\":\"ERROR\",\"error\":13}\r\n", false, 13, "Permission denied"},
        {"{\"error\":5}\r\n", false, 5, "Input/output error"},
        {"garbage\r\n", false, EPROTO, "Protocol error"},
    };
    for (const auto &each : cases) {
        std::string request;
        {
            const FakeService service(socket, [&](const std::string &got) {
                request += got;
                return got.back() == '}' ? each.answer : std::string();
            });
            error = {};
            EXPECT_EQ(TarvCLI::acceptEULA(&error), each.accepted) << each.answer;
        }
        EXPECT_EQ(request, "eula\r\n{\"action\":\"accept\"}");
        EXPECT_EQ(error.code, each.code) << each.answer;
        EXPECT_EQ(error.description, QLatin1String(each.description)) << each.answer;
    }
}
