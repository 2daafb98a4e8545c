#include "app/kit/WindowController.h"
#include "app/shell/EULAWindowController.h"
#include "app/shell/TarvCLI.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"
#include "tests/shell/shell_fixture.h"

#include <QAbstractButton>
#include <QDir>
#include <QMessageBox>
#include <QPushButton>
#include <QTextBrowser>

#include <string>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class AgreementTest : public ShellTest
{
protected:
    static QWidget *windowOf(const EULAWindowController &controller) { return controller.window(); }
    static QPushButton *accept(const EULAWindowController &controller)
    {
        return controller.window()->findChild<QPushButton *>(u"acceptButton"_s);
    }
};

// A launch service that answers one request.
class OneAnswer
{
public:
    std::string request;

    OneAnswer(const QString &path, std::string answer)
        : m_listener(cli2_listen(path.toLocal8Bit().constData())),
          m_thread([this, answer = std::move(answer)] { serve(answer); })
    {
    }
    ~OneAnswer() { finish(); }
    void finish()
    {
        if (m_thread.joinable())
            m_thread.join();
    }

private:
    UniqueFd m_listener;
    std::thread m_thread;

    void serve(const std::string &answer)
    {
        pollfd waiting = {m_listener.get(), POLLIN, 0};
        if (poll(&waiting, 1, 30000) <= 0)
            return;
        const UniqueFd peer(cli2_accept(m_listener.get()));
        waiting.fd = peer.get();
        char buffer[4096];
        while (request.find('}') == std::string::npos && poll(&waiting, 1, 30000) > 0) {
            const ssize_t count = read(peer.get(), buffer, sizeof buffer);
            if (count <= 0)
                return;
            request.append(buffer, size_t(count));
        }
        cli2_send(peer.get(), answer.data(), answer.size(), 0);
    }
};

} // namespace

TEST_F(AgreementTest, isAcceptedOnceTheMarkerIsThere)
{
    EXPECT_FALSE(TarvCTL::isEulaAccepted());
    QDir().mkpath(path(u"support"_s));
    write(u"support/.TarvEulaAccepted"_s, "");
    EXPECT_TRUE(TarvCTL::isEulaAccepted());
    QFile::remove(path(u"support/.TarvEulaAccepted"_s));
}

TEST_F(AgreementTest, showsTheTextOrSaysWhyNot)
{
    write(u"text.rtf"_s, "{\\rtf1 {\\b Be nice}}");
    const auto text = [this](const char *name) {
        const EULAWindowController controller(path(QLatin1String(name)), {});
        return controller.window()->findChild<QTextBrowser *>(u"eulaView"_s)->toPlainText();
    };
    EXPECT_EQ(text("text.rtf"), u"Be nice"_s);
    EXPECT_TRUE(text("absent.rtf").contains(path(u"absent.rtf"_s)));
}

TEST_F(AgreementTest, closesWhenAcceptedAndShowsTheErrorWhenNot)
{
    bool succeeds = false;
    EULAWindowController controller(path(u"text.rtf"_s), [&](TarvError *error) {
        error->description = u"refused"_s;
        return succeeds;
    });
    controller.showWindow();
    accept(controller)->click();
    EXPECT_FALSE(accept(controller)->isEnabled());
    ASSERT_TRUE(
        waitUntil([&] { return WindowController::attachedSheet(controller.window()) != nullptr; }));
    auto *alert = qobject_cast<QMessageBox *>(WindowController::attachedSheet(controller.window()));
    ASSERT_TRUE(alert);
    EXPECT_EQ(alert->text(), u"refused"_s);
    alert->buttons().constFirst()->click();
    EXPECT_TRUE(controller.window()->isVisible());
    succeeds = true;
    accept(controller)->click();
    EXPECT_TRUE(waitUntil([&] { return !controller.window()->isVisible(); }));
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
        OneAnswer service(socket, each.answer);
        error = {};
        EXPECT_EQ(TarvCLI::acceptEULA(&error), each.accepted) << each.answer;
        service.finish();
        EXPECT_EQ(service.request, "eula\r\n{\"action\":\"accept\"}");
        EXPECT_EQ(error.code, each.code) << each.answer;
        EXPECT_EQ(error.description, QLatin1String(each.description)) << each.answer;
    }
}
