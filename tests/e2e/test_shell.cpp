// The application's first start, second start, failures and end, as a user meets them.
#include "tests/e2e/EndToEnd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

const QString agreementTitle = QStringLiteral("^Tarv Agreement$");
const QString listTitle = QStringLiteral("^Virtual Machines$");
const QString alertTitle = QStringLiteral("^Tarv$");

} // namespace

class Shell : public EndToEnd
{
protected:
    bool isShown(const QString &title) { return !desktop->window(title).isEmpty(); }
    bool goesAway(const QString &title)
    {
        return waitUntil(30s, [&] { return !isShown(title); });
    }
    // Presses a key in a window.
    void press(const QString &window, const char *key)
    {
        desktop->xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
        desktop->xdotool({QStringLiteral("key"), QLatin1String(key)});
    }
    // The exit status of a program that is to end by itself; -1 when it does not.
    static int statusOf(QProcess *program)
    {
        return program->waitForFinished(60000) && program->exitStatus() == QProcess::NormalExit
                   ? program->exitCode()
                   : -1;
    }
};

TEST_F(Shell, theAgreementComesFirstAndASecondStartJoinsTheFirst)
{
    const QString marker = desktop->path(QStringLiteral("support/.TarvEulaAccepted"));
    QFile::remove(marker);
    QDir().mkpath(desktop->path(QStringLiteral("support/documentation")));
    QFile::copy(QStringLiteral(LICENSE_TEXT),
                desktop->path(QStringLiteral("support/documentation/License.rtf")));
    const QString nowhere = desktop->path(QStringLiteral("nowhere.sock"));
    const QString url = QStringLiteral("tarv://") + nowhere + QStringLiteral("?d=0");

    // Nothing else works, and refusing it leaves files closed.
    QProcess *tarv = desktop->startTarv({nowhere});
    QString agreement = waitForWindow(agreementTitle);
    ASSERT_FALSE(agreement.isEmpty()) << log("tarv");
    EXPECT_EQ(statusOf(desktop->startTarv()), 0);
    EXPECT_EQ(statusOf(desktop->startTarv({url, nowhere})), 0);
    press(agreement, "ctrl+n");
    EXPECT_EQ(desktop->processes(QStringLiteral("tarv")).size(), 1u);
    EXPECT_FALSE(isShown(listTitle) || isShown(alertTitle));
    press(agreement, "alt+n");
    QString list = waitForWindow(listTitle);
    ASSERT_FALSE(list.isEmpty());
    EXPECT_TRUE(goesAway(agreementTitle));
    EXPECT_EQ(statusOf(desktop->startTarv({nowhere})), 0);
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_FALSE(isShown(alertTitle));
    press(list, "ctrl+q");
    ASSERT_EQ(statusOf(tarv), 0);

    if (geteuid() != 0)
        GTEST_SKIP() << "the administrator right can't be had here";
    tarv = desktop->startTarv();
    agreement = waitForWindow(agreementTitle);
    press(agreement, "alt+a");
    list = waitForWindow(listTitle);
    ASSERT_FALSE(list.isEmpty()) << log("data/logs/tarv");
    EXPECT_TRUE(QFileInfo::exists(marker));
    EXPECT_EQ(statusOf(desktop->startTarv({url})), 0);
    EXPECT_EQ(statusOf(desktop->startTarv({nowhere})), 0);
    press(waitForWindow(alertTitle), "Escape");
    EXPECT_TRUE(goesAway(alertTitle));
    desktop->xdotool({QStringLiteral("windowminimize"), QStringLiteral("--sync"), list});
    EXPECT_EQ(statusOf(desktop->startTarv()), 0);
    EXPECT_FALSE(waitForWindow(listTitle).isEmpty()) << "brought back";
    press(list, "ctrl+w");
    EXPECT_EQ(statusOf(tarv), 0) << "its last window";
    // A file that can't be opened is told, and leaves no application without a window.
    desktop->startTarv({nowhere});
    press(waitForWindow(alertTitle), "Escape");
    EXPECT_FALSE(waitForWindow(listTitle).isEmpty());
}

TEST_F(Shell, aFailureIsShownInTheControllersWords)
{
    const QString id =
        desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
    QFile::remove(desktop->path(QStringLiteral("data/images/%1.qcow2").arg(id)));
    desktop->startTarv();
    const QString list = waitForWindow(listTitle);
    press(list, "Home");
    press(list, "ctrl+o");
    const QString alert = waitForWindow(alertTitle);
    EXPECT_FALSE(alert.isEmpty()) << log("tarv");
    EXPECT_THAT(log("data/logs/tarv"), HasSubstr("ctl: start command failed with status"));
    EXPECT_THAT(log("data/logs/tarv"), HasSubstr(id.toStdString() + ".qcow2"));
    press(alert, "Return");
    EXPECT_TRUE(goesAway(alertTitle));
}

TEST_F(Shell, asksBeforeItEndsTheVMsInItsCare)
{
    desktop->setVariable(QStringLiteral("TARV_HOST_ARM64"), QStringLiteral("1"));
    const QString id =
        desktop->addVM(QStringLiteral("bars"), QStringLiteral(GUEST_DIR "/bars.img"));
    QProcess *tarv = desktop->startTarv();
    const QString list = waitForWindow(listTitle);
    const QString url = QStringLiteral("tarv:?a=0&vmid=") + id;
    EXPECT_EQ(statusOf(desktop->startTarv({url})), 0);
    ASSERT_FALSE(waitForWindow(QStringLiteral("^bars$")).isEmpty());
    press(list, "ctrl+q");
    press(waitForWindow(alertTitle), "Return");
    EXPECT_TRUE(goesAway(alertTitle));
    EXPECT_EQ(desktop->status(id), QStringLiteral("running")) << "the first button is Cancel";
    press(list, "ctrl+q");
    const QString alert = waitForWindow(alertTitle);
    press(alert, "Tab");
    press(alert, "space");
    EXPECT_EQ(statusOf(tarv), 0);
    EXPECT_TRUE(desktop->processes(QStringLiteral("tarvvm")).empty()) << "ended in order";
    EXPECT_EQ(desktop->status(id), QStringLiteral("stopped"));

    tarv = desktop->startTarv({url});
    ASSERT_FALSE(waitForWindow(QStringLiteral("^bars$")).isEmpty());
    tarv->terminate();
    EXPECT_EQ(statusOf(tarv), 0) << "told to by a signal";
    EXPECT_TRUE(desktop->processes(QStringLiteral("tarvvm")).empty());
}
