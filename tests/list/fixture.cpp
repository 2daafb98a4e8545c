#include "tests/list/fixture.h"

#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/shell/TarvVM.h"
#include "tests/support/scratch.h"

#include <QDir>
#include <QSettings>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

ListTest::ListTest()
    : ShellTest(u"vm_lib_dir = %1/vms\nimg_lib_dir = %1/images\nvlaunch_sock = %1/launch\n"_s.arg(
          privateHome().path()))
{
    qputenv("TARV_HOST_ARM64", "0");
    QDir(path(u"vms"_s)).removeRecursively();
    privateHome().mkpath(u"vms"_s);
    QSettings(u"Quelda"_s, u"Tarv"_s).clear();
    setController(u"print {\"body\":{}}\n"_s);
}

void ListTest::TearDown()
{
    TarvVM::setDisplayOpener({});
    m_controller.reset();
    m_services.clear();
}

QString ListTest::randomId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString ListTest::addVM(const QString &name, const QString &more)
{
    const QString id = randomId();
    writeVM(id, "config.yaml", u"name: \"%1\"\n%2"_s.arg(name, more).toUtf8());
    return id;
}

QString ListTest::vmFile(const QString &id, const char *file) const
{
    return path(u"vms/%1/%2"_s.arg(id, QLatin1String(file)));
}

void ListTest::writeVM(const QString &id, const char *file, const QByteArray &text)
{
    write(vmFile(id, file), text);
}

void ListTest::supervise(const QString &id, Supervisor kind)
{
    m_services.push_back(
        std::make_unique<FakeService>(supervisorPath(id), [kind](const std::string &) {
            return kind == Supervisor::silent
                       ? std::string()
                       : "{\"status\":\"OK\",\"body\":{\"state\":\"running\"}}\r\n";
        }));
}

void ListTest::startLaunchService(int exitStatus)
{
    m_services.push_back(
        std::make_unique<FakeService>(path(u"launch"_s), [exitStatus](const std::string &got) {
            // The label ends with its second quotation mark and may come by itself.
            return got.back() != '"'
                       ? std::string()
                       : "{\"status\":\"OK\",\"body\":{\"status\":" + std::to_string(exitStatus) +
                             "}}\r\n";
        }));
}

QStringList ListTest::recorded()
{
    const std::string commands = read_file(path(u"commands"_s).toStdString());
    return QString::fromStdString(commands).split(u'\n', Qt::SkipEmptyParts);
}

bool ListTest::waitForRecorded(int count)
{
    return waitUntil([&] { return recorded().size() >= count; });
}

void ListTest::open()
{
    m_controller.reset(WelcomeWindowController::controller());
    m_reloads =
        std::make_unique<QSignalSpy>(m_controller.get(), &WelcomeWindowController::listReloaded);
    ASSERT_TRUE(waitUntil([&] { return m_reloads->count() > 0; }));
}

int ListTest::row(const QString &id) const
{
    const auto *list = m_controller->virtualMachinesController();
    return static_cast<int>(list->arrangedObjects().indexOf(list->find(id)));
}

QString ListTest::shown(const QString &id) const
{
    const auto *list = m_controller->virtualMachinesController();
    return list->shownStatus(list->find(id));
}

void ListTest::select(const QStringList &ids)
{
    auto *table = m_controller->virtualMachinesTableView();
    table->clearSelection();
    for (const QString &id : ids)
        table->selectionModel()->setCurrentIndex(
            m_controller->virtualMachinesController()->index(row(id), 0),
            QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

ListOfThree::ListOfThree(const QString &stoppedName)
    : m_running(addVM(u"one"_s)),
      m_stopped(addVM(stoppedName)),
      m_suspended(addVM(u"three"_s, u"state_file: s.img\n"_s))
{
}

void ListOfThree::SetUp()
{
    startLaunchService();
    supervise(m_running);
    open();
    m_controller->showWindow();
    ASSERT_TRUE(waitUntil([&] {
        return shown(m_running) == "running"_L1 && shown(m_stopped) == "stopped"_L1 &&
               shown(m_suspended) == "suspended"_L1;
    }));
    ASSERT_TRUE(QTest::qWaitForWindowActive(m_controller->window()));
}
