// The application's first start, second start, failures and end, as a user meets them.
#include "tests/e2e/EndToEnd.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString agreementTitle = u"^Tarv Agreement$"_s;
const QString listTitle = u"^Virtual Machines$"_s;
const QString alertTitle = u"^Tarv$"_s;

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
        desktop->xdotool({u"windowfocus"_s, u"--sync"_s, window});
        desktop->xdotool({u"key"_s, QLatin1String(key)});
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
    const QString marker = desktop->path(u"support/.TarvEulaAccepted"_s);
    QFile::remove(marker);
    QDir().mkpath(desktop->path(u"support/documentation"_s));
    QFile::copy(QStringLiteral(LICENSE_TEXT),
                desktop->path(u"support/documentation/License.rtf"_s));
    const QString nowhere = desktop->path(u"nowhere.sock"_s);
    const QString url = u"tarv://"_s + nowhere + u"?d=0"_s;

    // Nothing else works, and refusing it leaves files closed.
    QProcess *tarv = desktop->startTarv({nowhere});
    QString agreement = waitForWindow(agreementTitle);
    ASSERT_FALSE(agreement.isEmpty()) << log("tarv");
    EXPECT_EQ(statusOf(desktop->startTarv()), 0);
    EXPECT_EQ(statusOf(desktop->startTarv({url, nowhere})), 0);
    press(agreement, "ctrl+n");
    EXPECT_EQ(desktop->processes(u"tarv"_s).size(), 1u);
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
    desktop->xdotool({u"windowminimize"_s, u"--sync"_s, list});
    EXPECT_EQ(statusOf(desktop->startTarv()), 0);
    EXPECT_FALSE(waitForWindow(listTitle).isEmpty()) << "brought back";
    press(list, "ctrl+w");
    EXPECT_EQ(statusOf(tarv), 0) << "its last window";
    // A file that can't be opened is told, and leaves no application without a window.
    desktop->startTarv({nowhere});
    press(waitForWindow(alertTitle), "Escape");
    EXPECT_FALSE(waitForWindow(listTitle).isEmpty());
}

TEST_F(Shell, asksBeforeItEndsTheVMsInItsCare)
{
    desktop->setVariable(u"TARV_HOST_ARM64"_s, u"1"_s);
    const QString id = desktop->addVM(u"bars"_s, QStringLiteral(GUEST_DIR "/bars.img"));
    QProcess *tarv = desktop->startTarv();
    const QString list = waitForWindow(listTitle);
    const QString url = u"tarv:?a=0&vmid="_s + id;
    EXPECT_EQ(statusOf(desktop->startTarv({url})), 0);
    ASSERT_FALSE(waitForWindow(u"^bars$"_s).isEmpty());
    press(list, "ctrl+q");
    press(waitForWindow(alertTitle), "Return");
    EXPECT_TRUE(goesAway(alertTitle));
    EXPECT_EQ(desktop->status(id), u"running"_s) << "the first button is Cancel";
    press(list, "ctrl+q");
    const QString alert = waitForWindow(alertTitle);
    press(alert, "Tab");
    press(alert, "space");
    EXPECT_EQ(statusOf(tarv), 0);
    EXPECT_TRUE(desktop->processes(u"tarvvm"_s).empty()) << "ended in order";
    EXPECT_EQ(desktop->status(id), u"stopped"_s);

    tarv = desktop->startTarv({url});
    ASSERT_FALSE(waitForWindow(u"^bars$"_s).isEmpty());
    tarv->terminate();
    EXPECT_EQ(statusOf(tarv), 0) << "told to by a signal";
    EXPECT_TRUE(desktop->processes(u"tarvvm"_s).empty());

    tarv = desktop->startTarv({url});
    ASSERT_FALSE(waitForWindow(u"^bars$"_s).isEmpty());
    EXPECT_EQ(desktop->processes(u"tarvvm"_s).size(), 1u);
    tarv->kill();
    EXPECT_TRUE(waitUntil(20s, [this] {
        return desktop->processes(u"tarvvm"_s).empty() &&
               desktop->processes(u"qemu-system-x86_64"_s).empty();
    })) << "a VM outlives the application that cared for it";
    EXPECT_NE(desktop->status(id), u"running"_s);
}
