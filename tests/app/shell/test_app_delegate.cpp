#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/model/ControllerRun.h"
#include "app/model/TarvCTL.h"
#include "app/shell/AppDelegate.h"
#include "tarvhv/tarvhv.h"
#include "tests/app/fixtures/shell_fixture.h"
#include "tests/tarvhv/display/FakeDisplay.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QTimer>
#include <QUuid>
#include <QVBoxLayout>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class PlainController : public WindowController
{
public:
    int shown = 0;
    std::unique_ptr<TarvDisplay> display;

    explicit PlainController(std::unique_ptr<TarvDisplay> display_ = nullptr)
        : display(std::move(display_))
    {
        auto *widget = new QWidget;
        widget->setLayout(new QVBoxLayout);
        MainMenu::installIn(widget);
        setWindow(widget);
    }
    void showWindow() override
    {
        ++shown;
        WindowController::showWindow();
    }
};

const QString vmid = u"0d1f2a3b-0000-4000-8000-000000000001"_s;

class AppDelegateTest : public ShellTest
{
protected:
    bool accepted = true;
    int host = 1;
    unsigned running = 0;
    bool displaysFail = false;
    QStringList calls; // what was asked of the parts
    QList<PlainController *> displays;
    std::unique_ptr<AppDelegate> delegate = std::make_unique<AppDelegate>(parts());

    ~AppDelegateTest() override { MainMenu::setRestricted(false); }

    AppParts parts()
    {
        AppParts parts;
        const auto plain = [] { return new PlainController; };
        parts.isEulaAccepted = [this] { return accepted; };
        parts.makeEulaController = plain;
        parts.makeWelcomeController = plain;
        parts.makeDisplayController = [this](std::unique_ptr<TarvDisplay> display) {
            displays << new PlainController(std::move(display));
            return displays.constLast();
        };
        parts.createDisplay = [this](const QString &path, unsigned index, QObject *context,
                                     auto handler) {
            calls << u"display %1 %2"_s.arg(path).arg(index);
            QMetaObject::invokeMethod(
                context, [=, this] { handler(makeDisplay(), ENOENT); }, Qt::QueuedConnection);
        };
        parts.hostType = [this] { return host; };
        parts.runningVMs = [this] { return running; };
        parts.endVMs = [this] { calls << u"end"_s; };
        parts.removeState = [this](const QString &id) { calls << u"state "_s + id; };
        parts.startVM = [this](const QString &id, int options) {
            calls << u"start %1 %2"_s.arg(id).arg(options);
        };
        parts.setVMStatus = [this](const QString &id, int status) {
            calls << u"status %1 %2"_s.arg(id).arg(status);
        };
        parts.setAddonsImage = [this](const QString &path) { calls << u"addons "_s + path; };
        parts.openInBrowser = [](const QUrl &) { return true; };
        parts.exit = [this] { calls << u"exit"_s; };
        return parts;
    }

    std::unique_ptr<TarvDisplay> makeDisplay() const
    {
        if (displaysFail)
            return nullptr;
        auto display = std::make_unique<FakeDisplay>(1, 1);
        display->id = vmid;
        return display;
    }

    void finishLaunching()
    {
        delegate->applicationWillFinishLaunching(nullptr);
        delegate->applicationDidFinishLaunching();
    }
    bool waitForDisplays(size_t count)
    {
        return waitUntil([=, this] { return delegate->displayCount() == count; });
    }
    // Presses a button of the next modal alert and keeps its text.
    QString alertText;
    void answerAlert(int button)
    {
        auto *poll = new QTimer(delegate.get());
        QObject::connect(poll, &QTimer::timeout, poll, [this, poll, button] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box)
                return;
            alertText = box->text();
            delete poll;
            box->findChild<QAbstractButton *>(u"alertButton%1"_s.arg(button))->click();
        });
        poll->start(5);
    }
};

} // namespace

TEST_F(AppDelegateTest, theAgreementComesBeforeAnythingElse)
{
    accepted = false;
    finishLaunching();
    delegate->launch({QUrl(u"tarv:/p?o=x&d=0"_s)});
    ASSERT_TRUE(delegate->eulaController());
    EXPECT_FALSE(delegate->welcomeController());
    const auto menus = MainMenu::of(delegate->eulaController()->window())->actions();
    EXPECT_TRUE(menus[0]->isVisible());
    EXPECT_FALSE(menus[1]->isVisible());
    delegate->open({QUrl(u"tarv:/p?o=x&d=0"_s), QUrl(u"file:///p"_s)});
    delegate->activate();
    EXPECT_TRUE(calls.isEmpty());
    EXPECT_FALSE(delegate->welcomeController());

    delegate->eulaController()->close();
    EXPECT_FALSE(delegate->eulaController());
    ASSERT_TRUE(delegate->welcomeController());
    EXPECT_TRUE(delegate->welcomeController()->window()->isVisible());
    EXPECT_TRUE(
        MainMenu::of(delegate->welcomeController()->window())->actions().at(1)->isVisible());
}

TEST_F(AppDelegateTest, opensEachDisplayOnceAndForgetsItAfterItsClose)
{
    finishLaunching();
    delegate->viewDisplay(u"/tmp/a"_s, 0);
    delegate->viewDisplay(u"/tmp/a"_s, 0);
    ASSERT_TRUE(waitForDisplays(1));
    EXPECT_EQ(calls.size(), 1) << "asked twice before it was there";
    delegate->viewDisplay(u"/tmp/a"_s, 0);
    EXPECT_EQ(displays[0]->shown, 2) << "brought forward";
    delegate->viewDisplay(u"/tmp/a"_s, 1);
    ASSERT_TRUE(waitForDisplays(2));
    EXPECT_FALSE(delegate->applicationShouldOpenUntitledFile());
    displays[0]->close();
    EXPECT_EQ(delegate->displayCount(), 2u) << "not in the middle of its own close";
    EXPECT_TRUE(waitForDisplays(1));
    EXPECT_FALSE(displays[1]->window()->isHidden());
    delegate->applicationOpenFile(u"p:2"_s);
    delegate->applicationOpenFile(u"p:2"_s);
    EXPECT_TRUE(waitForDisplays(3)) << "a file is opened each time";
    EXPECT_EQ(calls.last(), u"display p:2 2"_s);
    displaysFail = true;
    bool opened = true;
    delegate->viewDisplay(u"/tmp/gone"_s, 0, [&](bool answer) { opened = answer; });
    EXPECT_TRUE(waitUntil([&] { return !opened; }));
    EXPECT_EQ(delegate->displayCount(), 3u);
    EXPECT_TRUE(log().isEmpty()) << log().toStdString();
}

TEST_F(AppDelegateTest, aStartedVMGetsItsDisplayOnce)
{
    finishLaunching();
    const QString socket = u"display /tmp/com.quelda.tarvhv.%1.%2.sock 0"_s.arg(vmid).arg(getuid());
    const auto started = [](const QVariant &object) {
        NotificationCenter::defaultCenter().post(QString::fromUtf8(TarvVMDidStartNotification),
                                                 object);
    };
    started(QUuid(vmid));
    ASSERT_TRUE(waitForDisplays(1));
    EXPECT_EQ(calls, QStringList{socket}) << "the state is kept on this host type";
    started(vmid.toUpper());
    EXPECT_EQ(displays[0]->shown, 2);
    started(7);
    started(QVariant());
    displays[0]->close();
    ASSERT_TRUE(waitForDisplays(0));
    host = 2;
    displaysFail = true;
    started(vmid);
    EXPECT_TRUE(waitUntil([] { return log().endsWith("failed to open display\r\n"_L1); }));
    EXPECT_EQ(calls, (QStringList{socket, u"state "_s + vmid, socket}));
    EXPECT_EQ(log().mid(19), u" tarv: failed to open display\r\n"_s);
}

TEST_F(AppDelegateTest, urlsStartVMsOrShowThemByHostType)
{
    const QString url = u"tarv:///tmp/s.sock?vmid=X&a=1&d=3&o=%2Fpath&a=b=c"_s;
    delegate->getUrl(url);
    EXPECT_EQ(calls, (QStringList{u"addons /path"_s, u"display /tmp/s.sock 3"_s}));
    ASSERT_TRUE(waitForDisplays(1));
    calls.clear();
    host = 2;
    delegate->getUrl(url);
    EXPECT_EQ(calls, (QStringList{u"addons /path"_s, u"start X 1"_s}));
    EXPECT_FALSE(delegate->welcomeController());
}

TEST_F(AppDelegateTest, asksBeforeItEndsRunningVMs)
{
    EXPECT_TRUE(delegate->applicationShouldTerminate());
    EXPECT_TRUE(delegate->applicationShouldTerminateAfterLastWindowClosed());
    running = 2;
    EXPECT_FALSE(delegate->applicationShouldTerminateAfterLastWindowClosed());
    answerAlert(1);
    EXPECT_FALSE(delegate->applicationShouldTerminate());
    EXPECT_EQ(alertText, u"2 VM(s) are running. Do you want to quit and terminate them?"_s);
    answerAlert(2);
    EXPECT_TRUE(delegate->requestTermination());
    EXPECT_TRUE(delegate->requestTermination()) << "asked once";
    EXPECT_EQ(calls, QStringList{u"end"_s});
}

TEST_F(AppDelegateTest, endsWithItsLastWindowOnceNothingIsUnderWay)
{
    finishLaunching();
    const auto ends = [this] { return waitUntil([this] { return calls.contains(u"exit"_s); }); };
    const auto vmEnds = [this] {
        running = 0;
        NotificationCenter::defaultCenter().post(QString::fromUtf8(TarvVMDidStopNotification),
                                                 vmid);
    };
    running = 1;
    vmEnds();
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "no window was there yet";
    running = 1;
    delegate->lastWindowDidClose();
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "its VM runs";
    vmEnds();
    EXPECT_TRUE(ends());

    calls.clear();
    delegate = std::make_unique<AppDelegate>(parts());
    finishLaunching();
    running = 1;
    delegate->lastWindowDidClose();
    EXPECT_FALSE(calls.contains(u"exit"_s));
    delegate->showWelcomeWindow(nullptr);
    vmEnds();
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "a window is open again";
    delegate->welcomeController()->close();
    delegate->lastWindowDidClose();
    EXPECT_TRUE(ends());

    calls.clear();
    delegate = std::make_unique<AppDelegate>(parts());
    holdController();
    TarvCTL::executeCommand({u"suspend"_s, vmid});
    delegate->lastWindowDidClose();
    ASSERT_TRUE(waitUntil([] { return !recordedArguments().isEmpty(); }));
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "a command runs";
    letControllerGo();
    EXPECT_TRUE(ends());

    calls.clear();
    delegate = std::make_unique<AppDelegate>(parts());
    displaysFail = true;
    delegate->viewDisplay(u"/tmp/gone"_s, 0);
    delegate->lastWindowDidClose();
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "a window may come";
    EXPECT_TRUE(ends());
}

TEST_F(AppDelegateTest, aQuitWaitsForCommandsOrLeavesThemToThemselves)
{
    holdController();
    TarvCTL::executeCommand({u"delete"_s, vmid});
    answerAlert(2);
    EXPECT_TRUE(delegate->requestTermination());
    EXPECT_TRUE(delegate->requestTermination()) << "asked once";
    ASSERT_TRUE(waitUntil([this] { return !alertText.isEmpty(); }));
    EXPECT_EQ(alertText, u"Tarv quits when the command that is running has finished."_s);
    letControllerGo();
    ASSERT_TRUE(waitUntil([] { return ControllerRun::underWay() == 0; }));
    EXPECT_FALSE(calls.contains(u"exit"_s)) << "taken back";

    holdController();
    TarvCTL::executeCommand({u"delete"_s, vmid});
    EXPECT_TRUE(delegate->requestTermination());
    letControllerGo();
    EXPECT_TRUE(waitUntil([this] { return calls.contains(u"exit"_s); })) << "waited for";

    calls.clear();
    delegate = std::make_unique<AppDelegate>(parts());
    holdController();
    TarvCTL::executeCommand({u"delete"_s, vmid});
    answerAlert(1);
    EXPECT_TRUE(delegate->requestTermination());
    EXPECT_TRUE(waitUntil([this] { return calls.contains(u"exit"_s); }));
    EXPECT_EQ(ControllerRun::underWay(), 1u) << "it runs on";
}
