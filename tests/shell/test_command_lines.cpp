// What every menu action and model operation runs the controller with, to the byte: the recording
// controller stands in for it.
#include "app/display/TarvWindowController.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindowController.h"
#include "app/shell/TarvVM.h"
#include "platform/process.h"
#include "tests/display/FakeDisplay.h"
#include "tests/list/fixture.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QProcessEnvironment>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

class CommandLines : public ListTest
{
protected:
    const QString home = qEnvironmentVariable("HOME");
    const QString record = home + u"/record"_s;
    QString running, stopped, suspended;
    std::unique_ptr<WelcomeWindowController> list;
    std::unique_ptr<TarvWindowController> screen;

    void SetUp() override
    {
        ListTest::SetUp();
        QFile::remove(home + u"/controller"_s);
        QFile::link(QStringLiteral(CONTROLLER_RECORDER), home + u"/controller"_s);
        startLaunchService();
        running = addVM(u"one"_s);
        stopped = addVM(u"a \\\"$b\\\" ü"_s);
        suspended = addVM(u"three"_s, u"state_file: s.img\n"_s);
        supervise(running);
        list.reset(WelcomeWindowController::controller());
        list->showWindow();
        const auto *vms = list->virtualMachinesController();
        ASSERT_TRUE(waitFor([&] {
            return vms->count() == 3 && vms->shownStatus(vms->find(running)) == "running"_L1 &&
                   vms->shownStatus(vms->find(suspended)) == "suspended"_L1;
        }));
        screen = std::make_unique<TarvWindowController>(std::make_unique<FakeDisplay>(640, 480));
        screen->showWindow();
    }
    void TearDown() override
    {
        screen.reset();
        list.reset();
        ListTest::TearDown();
    }
    void select(const QStringList &ids)
    {
        const auto *vms = list->virtualMachinesController();
        auto *table = list->virtualMachinesTableView();
        table->clearSelection();
        for (const QString &id : ids)
            table->selectionModel()->setCurrentIndex(
                vms->index(int(vms->arrangedObjects().indexOf(vms->find(id))), 0),
                QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    // Presses the first button of the question that an action asks.
    static void confirm(const WindowController &window)
    {
        auto *question = window.window()->findChild<QMessageBox *>();
        ASSERT_TRUE(question);
        question->findChild<QAbstractButton *>(u"alertButton1"_s)->click();
    }
    // The texts of a kind that the controller was run with; each ends with a null byte.
    QStringList recordedTexts(const QByteArray &kind) const
    {
        QFile file(record);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        QStringList texts;
        for (const QByteArray &text : file.readAll().split('\0'))
            if (text.startsWith(kind))
                texts << QString::fromUtf8(text.mid(kind.size()));
        return texts;
    }
};

} // namespace

TEST_F(CommandLines, areTheStatedOnes)
{
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
        {[&] { select({stopped}), list->openDocument(); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { list->forceStartVirtualMachine(); }, {u"start"_s, u"-uv"_s, stopped}},
        {[&] { list->recoverVirtualMachine(); }, {u"start"_s, u"-fv"_s, stopped}},
        {[&] { list->cloneVirtualMachine(); }, {u"clone"_s, stopped, copy}},
        {[&] { list->copyVirtualMachine(); }, {u"clone"_s, u"--copy"_s, stopped, copy}},
        {[&] {
             select({stopped, running, suspended}), list->stopVirtualMachine();
         },
         {u"stop"_s, running}},
        {[&] { list->forceStopVirtualMachine(); }, {u"stop"_s, u"--force"_s, running, suspended}},
        {[&] { list->suspendVirtualMachine(); }, {u"suspend"_s, running}},
        {[&] { list->rebootVirtualMachine(); }, {u"suspend"_s, running}},
        {[&] { list->delete_(), confirm(*list); },
         {u"delete"_s, u"--yes"_s, stopped, running, suspended}},
        {[&] { screen->stopVirtualMachine(nullptr); }, {u"stop"_s, screenId}},
        {[&] { screen->forceStopVirtualMachine(nullptr); }, {u"stop"_s, screenId, u"--force"_s}},
        {[&] { screen->suspendVirtualMachine(nullptr); }, {u"suspend"_s, screenId}},
        {[&] { screen->rebootVirtualMachine(nullptr); }, {u"reboot"_s, screenId}},
        {[&] { screen->delete_(nullptr), confirm(*screen); }, {u"delete"_s, u"--yes"_s, screenId}},
    };
    QProcessEnvironment all = QProcessEnvironment::systemEnvironment();
    all.insert(u"TARV_MACHINE_READABLE"_s, u"1"_s);
    all.insert(u"TARV_TARV_VIEWER"_s, QApplication::applicationFilePath());
    all.insert(u"USER"_s, QString::fromLocal8Bit(platform_user_name(getuid())));
    QStringList environment = all.toStringList();
    environment.sort();
    for (const auto &each : cases) {
        const std::string line = each.arguments.join(u'|').toStdString();
        QFile::remove(record);
        each.act();
        ASSERT_TRUE(waitFor([&] { return QFile::exists(record); })) << line;
        EXPECT_EQ(recordedTexts("argument "), each.arguments);
        QStringList actual = recordedTexts("environment ");
        actual.sort();
        EXPECT_EQ(actual, environment) << line;
        ASSERT_TRUE(waitFor([&] {
            return !WindowController::attachedSheet(list->window()) &&
                   !WindowController::attachedSheet(screen->window());
        })) << line;
    }
}
