#include "app/model/ControllerRun.h"
#include "app/model/TarvCTL.h"
#include "platform/process.h"
#include "tests/app/fixtures/shell_fixture.h"

#include <QAbstractButton>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPointer>
#include <QTest>

#include <csignal>
#include <optional>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class TarvCTLTest : public ShellTest
{
protected:
    struct Outcome
    {
        QJsonValue body;
        std::optional<TarvError> error;
    };
    std::optional<Outcome> outcome;
    std::unique_ptr<TarvCTL> runner = std::make_unique<TarvCTL>();

    void run(const QStringList &arguments,
             const std::optional<TarvCTL::Environment> &environment = std::nullopt)
    {
        runner->execute(arguments, environment,
                        [this](const QJsonValue &body, const std::optional<TarvError> &error) {
                            outcome = Outcome{body, error};
                        });
    }
    bool waitForOutcome()
    {
        return waitUntil([this] { return outcome.has_value(); });
    }
    static QMessageBox *alert()
    {
        for (QWidget *widget : QApplication::allWidgets())
            if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
                return box;
        return nullptr;
    }
};

} // namespace

TEST_F(TarvCTLTest, handsOverTheBodyOfAnAnswerLargerThanAPipe)
{
    setController(u"flood 1000000\nprint {\"body\": {\"a\": [1]}}\nexit 0\n"_s);
    run({u"show"_s});
    EXPECT_TRUE(runner->isRunning());
    EXPECT_GT(runner->processIdentifier(), 0);
    ASSERT_TRUE(waitForOutcome());
    EXPECT_EQ(outcome->body.toObject().value("a"_L1).toArray().size(), 1);
    EXPECT_FALSE(outcome->error);
    EXPECT_EQ(runner->processIdentifier(), -1);
    EXPECT_EQ(runner->exitStatus(), 0);
    EXPECT_FALSE(runner->isRunning());
}

TEST_F(TarvCTLTest, anAnswerThatIsTooLargeIsSaidToBe)
{
    setController(u"flood %1\nprint {\"body\": 1}\nexit 0\n"_s.arg(ControllerRun::OUTPUT_MAX));
    run({u"list"_s});
    ASSERT_TRUE(waitForOutcome());
    EXPECT_TRUE(outcome->body.isUndefined());
    EXPECT_TRUE(log().contains("larger than 16777216 bytes"_L1)) << log().toStdString();
}

TEST_F(TarvCTLTest, aGivenEnvironmentReplacesTheInheritedOne)
{
    run({u"create"_s}, TarvCTL::Environment{{u"A"_s, u"1"_s}, {u"USER"_s, QString()}});
    ASSERT_TRUE(waitForOutcome());
    QStringList expected = {u"A=1"_s, u"TARV_MACHINE_READABLE=1"_s,
                            u"TARV_TARV_VIEWER="_s + QApplication::applicationFilePath(),
                            u"USER="_s + QString::fromLocal8Bit(platform_user_name(getuid()))};
    QStringList actual = recordedEnvironment();
    // What a sanitizer's run-time library puts there by itself.
    actual.removeIf([](const QString &entry) { return entry.startsWith("ASAN_"_L1); });
    actual.sort();
    EXPECT_EQ(actual, expected);
    EXPECT_TRUE(outcome->body.isUndefined()) << "no output is no body";
    EXPECT_TRUE(log().contains(" ctl: failed to parse the response: "_L1));
}

TEST_F(TarvCTLTest, aFailureIsLoggedAndShownOnTheKeyWindowBeforeItIsHandled)
{
    struct
    {
        const char *mode;
        int status;
        const char *logged;
        const char *shown;
    } const cases[] = {
        {"print {\"message\": \"No <b>such</b> VM\"}\nexit 3\n", 3,
         " ctl: stop command failed with status 3: No <b>such</b> VM\r\n", "No <b>such</b> VM"},
        {"exit 2\n", 2, " ctl: stop command failed with status 2: (null)\r\n",
         "Operation failed with status 2"},
    };
    QWidget window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    for (const auto &each : cases) {
        outcome.reset();
        setController(QLatin1String(each.mode));
        run({u"stop"_s, u"x"_s});
        ASSERT_TRUE(waitUntil([] { return alert() != nullptr; }));
        QMessageBox *box = alert();
        EXPECT_FALSE(outcome) << "the alert comes first";
        EXPECT_EQ(box->text(), QLatin1String(each.shown));
        EXPECT_FALSE(box->iconPixmap().isNull());
        EXPECT_EQ(box->parentWidget(), &window);
        EXPECT_EQ(box->windowModality(), Qt::WindowModal);
        EXPECT_TRUE(log().contains(QLatin1String(each.logged))) << log().toStdString();
        box->buttons().constFirst()->click();
        ASSERT_TRUE(waitForOutcome());
        ASSERT_TRUE(outcome->error);
        EXPECT_EQ(outcome->error->domain, u"TarvCTLError"_s);
        EXPECT_EQ(outcome->error->code, each.status);
        EXPECT_EQ(outcome->error->description, QLatin1String(each.shown));
        waitUntil([] { return alert() == nullptr; });
        window.activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }
}

TEST_F(TarvCTLTest, aControllerThatCanNotBeStartedIsAnErrorOfItsOwn)
{
    setSettings(QString(), u"/nowhere/tarvctl"_s);
    runner->setSilent(true);
    run({u"list"_s});
    EXPECT_FALSE(runner->isRunning());
    QWidget window;
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    runner->setSilent(false);
    run({u"list"_s});
    ASSERT_TRUE(waitUntil([] { return alert() != nullptr; }));
    EXPECT_TRUE(alert()->text().contains("/nowhere/tarvctl"_L1));
    alert()->buttons().constFirst()->click();
    ASSERT_TRUE(waitForOutcome());
    EXPECT_EQ(outcome->error->code, ENOENT);
}

TEST_F(TarvCTLTest, abortAsksAndFiveSecondsLaterInsists)
{
    setController(u"ignore-term\nhang\n"_s);
    runner->setSilent(true);
    run({u"start"_s});
    ASSERT_TRUE(waitUntil([] { return !recordedArguments().isEmpty(); }));
    QElapsedTimer timer;
    timer.start();
    runner->abort();
    ASSERT_TRUE(waitUntil([this] { return !runner->isRunning(); }));
    EXPECT_GE(timer.elapsed(), 4900);
    EXPECT_EQ(runner->exitStatus(), 128 + SIGABRT);
}

TEST_F(TarvCTLTest, aDetachedCommandRunsOnUnfollowedAndAnAbandonedOneIsKilled)
{
    setController(u"hang\n"_s);
    run({u"start"_s});
    const pid_t detached = runner->processIdentifier();
    runner->detach();
    EXPECT_FALSE(runner->isRunning());
    run({u"start"_s});
    const pid_t abandoned = runner->processIdentifier();
    runner.reset();
    ASSERT_TRUE(waitUntil([=] { return kill(abandoned, 0) != 0; })) << "killed and reaped";
    EXPECT_EQ(kill(detached, SIGTERM), 0) << "runs on";
    ASSERT_TRUE(waitUntil([=] { return kill(detached, 0) != 0; })) << "reaped all the same";
    EXPECT_FALSE(outcome);
    EXPECT_FALSE(log().contains("command failed"_L1));
}
