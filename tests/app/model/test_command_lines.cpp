// What every menu action and model operation runs the controller with, to the byte: the recording
// controller stands in for it.
#include "app/display/TarvWindowController.h"
#include "app/model/ControllerRun.h"
#include "app/model/TarvVM.h"
#include "platform/process.h"
#include "tests/app/fixtures/list_fixture.h"
#include "tests/tarvhv/display/FakeDisplay.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QProcessEnvironment>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class CommandLines : public ListOfThree
{
protected:
    CommandLines() : ListOfThree(u"a \\\"$b\\\" ü"_s) {}

    // Chooses from the context menu.
    void choose(const char *title)
    {
        auto *menu = m_controller->window()->findChild<QMenu *>(u"virtualMachineMenu"_s);
        menu->popup({});
        for (QAction *item : menu->actions())
            if (item->text() == QString::fromUtf8(title))
                item->trigger();
        menu->close();
    }
    // Presses the first button of the question that an action asks.
    static void confirm(const WindowController &window)
    {
        auto *question = window.window()->findChild<QMessageBox *>();
        ASSERT_TRUE(question);
        question->findChild<QAbstractButton *>(u"alertButton1"_s)->click();
    }
};

} // namespace

TEST_F(CommandLines, areTheStatedOnes)
{
    TarvWindowController onScreen(std::make_unique<FakeDisplay>(640, 480));
    onScreen.showWindow();
    auto *screen = &onScreen;
    const QString running = m_running, stopped = m_stopped, suspended = m_suspended;
    const QString record = path(u"record"_s);
    TarvVM vm(stopped);
    const QString name = u"--new \"name\"\n$(x);'ü"_s;
    const QString screenId = screen->display()->uuid();
    const QString copy = u"a \"$b\" ü_copy"_s;
    struct
    {
        std::function<void()> act;
        QStringList arguments;
    } const cases[] = {
        {[&] { vm.setName(name); }, {u"modify"_s, stopped, u"set"_s, u"name"_s, name}},
        {[&] { vm.start(0); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { vm.start(1); }, {u"start"_s, u"-uv"_s, stopped}},
        {[&] { vm.start(2); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { select({stopped}), choose("Start"); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { choose("Force Start"); }, {u"start"_s, u"-uv"_s, stopped}},
        {[&] { choose("Start in Recovery"); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { choose("Clone"); }, {u"clone"_s, stopped, copy}},
        {[&] { choose("Copy"); }, {u"clone"_s, u"--copy"_s, stopped, copy}},
        {[&] {
             select({stopped, running, suspended}), choose("Stop");
         },
         {u"stop"_s, running}},
        {[&] { choose("Force Stop"); }, {u"stop"_s, u"--force"_s, running, suspended}},
        {[&] { choose("Suspend"); }, {u"suspend"_s, running}},
        {[&] { choose("Reboot"); }, {u"suspend"_s, running}},
        {[&] { choose("Delete…"), confirm(*m_controller); },
         {u"delete"_s, u"--yes"_s, stopped, running, suspended}},
        {[&] { screen->stopVirtualMachine(nullptr); }, {u"stop"_s, screenId}},
        {[&] { screen->forceStopVirtualMachine(nullptr); }, {u"stop"_s, screenId, u"--force"_s}},
        {[&] { screen->suspendVirtualMachine(nullptr); }, {u"suspend"_s, screenId}},
        {[&] { screen->rebootVirtualMachine(nullptr); }, {u"reboot"_s, screenId}},
        {[&] { screen->delete_(nullptr), confirm(*screen); }, {u"delete"_s, u"--yes"_s, screenId}},
    };
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    all.remove(u"TARV_DO_NOT_EXIT_ON_BASE_MISS"_s); // there for the workers of this process alone
    all.insert(u"TARV_MACHINE_READABLE"_s, u"1"_s);
    all.insert(u"TARV_TARV_VIEWER"_s, QApplication::applicationFilePath());
    all.insert(u"USER"_s, QString::fromLocal8Bit(platform_user_name(getuid())));
    QStringList environment = all.toStringList();
    environment.sort();
    for (const auto &each : cases) {
        const std::string line = each.arguments.join(u'|').toStdString();
        QFile::remove(record);
        each.act();
        ASSERT_TRUE(waitUntil([&] { return QFile::exists(record); })) << line;
        EXPECT_EQ(recordedArguments(), each.arguments);
        QStringList actual = recordedEnvironment();
        actual.sort();
        EXPECT_EQ(actual, environment) << line;
        ASSERT_TRUE(waitUntil([&] {
            return ControllerRun::underWay() == 0 &&
                   !WindowController::attachedSheet(m_controller->window()) &&
                   !WindowController::attachedSheet(screen->window());
        })) << line;
    }
}
