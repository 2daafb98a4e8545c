// What the VM list costs: reload of a large library, start-up to a painted list, and the longest
// stall of the event loop while one supervisor of a hundred never answers and while ten thousand
// notifications arrive. Prints figures.
#include "app/kit/NotificationCenter.h"
#include "app/list/VirtualMachinesController.h"
#include "app/list/VirtualMachinesTable.h"
#include "app/list/WelcomeWindowController.h"
#include "app/shell/AppDelegate.h"
#include "app/shell/AppParts.h"
#include "app/shell/EntryPoint.h"
#include "app/shell/ServiceNotifications.h"
#include "tests/app/fixtures/fake_service.h"
#include "tests/app/kit/PrivateBus.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMenu>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int deadline_ms = 60000;

void write(const QString &path, const QByteArray &text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        qFatal("%s can't be written", qPrintable(path));
}

QStringList makeLibrary(const QString &home, int count)
{
    QStringList ids;
    for (int i = 0; i < count; i++) {
        const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        const QString directory = home + u"/vms/"_s + id;
        QDir().mkpath(directory);
        write(directory + u"/config.yaml"_s,
              u"name: machine %1\nuuid: %2\ncpu:\n  count: 2\nram:\n  size: 2147483648\n"
              "firmware: uefi\nhard_drives:\n  - file: %2.qcow2\n    controller: ablk\n"
              "network:\n  - mode: shared\n    controller: anet\ndisplays:\n  - width: 1280\n"
              "    height: 800\n"_s.arg(QString::number(i), id)
                  .toUtf8());
        write(directory + u"/localversion"_s, "12.4\n");
        ids.append(id);
    }
    return ids;
}

void makeHome(const QString &home)
{
    QDir(home).mkpath(u"vms"_s);
    write(
        home + u"/settings.ini"_s,
        u"[tarv]\nvm_lib_dir = %1/vms\nvlaunch_sock = %1/launch\ntarvctl_executable = /bin/true\n"_s
            .arg(home)
            .toUtf8());
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_CONFIG_HOME", home.toUtf8());
    qputenv("TARV_CONFIG_PATH", (home + u"/settings.ini"_s).toUtf8());
    qputenv("TARV_HOST_ARM64", "0");
    QDir(home).mkpath(u"support"_s);
    write(home + u"/support/.TarvEulaAccepted"_s, {});
    qputenv("TARV_SUPPORT_DIR", (home + u"/support"_s).toUtf8());
}

int64_t ownTime_ns()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// Beats every millisecond; the longest time between two beats is the longest stall. On a loaded
// machine the thread waits for a processor too: its own time is what the program can be blamed for.
class Heartbeat : public QObject
{
public:
    Heartbeat() { startTimer(1, Qt::PreciseTimer); }

    void restart()
    {
        m_longest = m_longestOwn = 0;
        m_ownSince = ownTime_ns();
        m_since.start();
    }
    double longest_ms() const { return static_cast<double>(m_longest) / 1e6; }
    double longestOwn_ms() const { return static_cast<double>(m_longestOwn) / 1e6; }

protected:
    void timerEvent(QTimerEvent *) override
    {
        m_longest = std::max<int64_t>(m_longest, m_since.nsecsElapsed());
        m_longestOwn = std::max(m_longestOwn, ownTime_ns() - m_ownSince);
        m_ownSince = ownTime_ns();
        m_since.start();
    }

private:
    QElapsedTimer m_since;
    int64_t m_ownSince = 0;
    int64_t m_longest = 0;
    int64_t m_longestOwn = 0;
};

template <class Condition>
double waitFor(Condition condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > deadline_ms)
            qFatal("a step took longer than %d ms", deadline_ms);
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
    }
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

void runFor(int ms)
{
    QElapsedTimer timer;
    timer.start();
    waitFor([&] { return timer.elapsed() >= ms; });
}

// What the machine's other work alone does to the beat. Starts the beat anew.
void printIdle(Heartbeat &heartbeat)
{
    runFor(1000); // the last answers are in by then
    heartbeat.restart();
    runFor(3000);
    printf("nothing to do: longest stall %.1f ms\n", heartbeat.longest_ms());
    heartbeat.restart();
}

double reload(WelcomeWindowController *list)
{
    bool done = false;
    const auto connection = QObject::connect(list, &WelcomeWindowController::listReloaded, list,
                                             [&done] { done = true; });
    list->reloadVirtualMachines();
    const double took = waitFor([&] { return done; });
    QObject::disconnect(connection);
    return took;
}

std::unique_ptr<WelcomeWindowController> openList(int count)
{
    std::unique_ptr<WelcomeWindowController> list(WelcomeWindowController::controller());
    list->showWindow();
    waitFor([&] { return list->virtualMachinesController()->count() == count; });
    return list;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::string running(const std::string &)
{
    return "{\"status\":\"OK\",\"body\":{\"state\":\"running\"}}\r\n";
}

std::string ended(const std::string &request)
{
    return request.back() == '"' ? "{\"status\":\"OK\",\"body\":{\"status\":0}}\r\n" : "";
}

void benchReload(int count)
{
    makeLibrary(qEnvironmentVariable("HOME"), count);
    const auto list = openList(count);
    Heartbeat heartbeat;
    std::vector<double> times;
    printIdle(heartbeat);
    for (int i = 0; i < 11; i++) {
        times.push_back(reload(list.get()));
        runFor(300); // the statuses that follow are not part of it
    }
    printf("reload of %d VMs: median %.1f ms; longest stall %.1f ms, own work %.1f ms\n", count,
           median(times), heartbeat.longest_ms(), heartbeat.longestOwn_ms());
}

void act(WelcomeWindowController *list, int step)
{
    VirtualMachinesTable *table = list->virtualMachinesTableView();
    switch (step % 5) {
    case 0:
        return list->reloadVirtualMachines();
    case 1:
        return table->verticalScrollBar()->setValue(table->verticalScrollBar()->maximum() *
                                                    (step % 10) / 10);
    case 2:
        return table->selectAll();
    case 3:
        return list->stopVirtualMachine();
    default:
        return table->clearSelection();
    }
}

void benchHung(int count)
{
    const QStringList ids = makeLibrary(qEnvironmentVariable("HOME"), count);
    const FakeService launch(qEnvironmentVariable("HOME") + u"/launch"_s, ended);
    std::vector<std::unique_ptr<FakeService>> services;
    for (const QString &id : ids) {
        const bool hung = id == ids.first();
        services.push_back(std::make_unique<FakeService>(
            supervisorPath(id),
            hung ? [](const std::string &) { return std::string(); } : running));
    }
    const auto list = openList(count);
    const auto *machines = list->virtualMachinesController();
    const double right = waitFor([&] {
        return std::count_if(ids.begin(), ids.end(), [&](const QString &id) {
                   return machines->shownStatus(machines->find(id)) == "running"_L1;
               }) == count - 1;
    });
    Heartbeat heartbeat;
    printIdle(heartbeat);
    for (int step = 0; step < 100; step++) {
        act(list.get(), step);
        runFor(50);
    }
    printf("%d VMs, one hung: the others right %.1f ms after the list was filled; longest stall "
           "%.1f ms, own work %.1f ms\n",
           count, right, heartbeat.longest_ms(), heartbeat.longestOwn_ms());
}

void benchStorm(int count)
{
    constexpr int signals_sent = 10000;
    const PrivateBus bus;
    const QString name = u"storm"_s;
    const ServiceNotifications notifications(QDBusConnection::connectToBus(bus.address(), name));
    const QStringList ids = makeLibrary(qEnvironmentVariable("HOME"), count);
    const FakeService launch(qEnvironmentVariable("HOME") + u"/launch"_s, ended);
    const auto list = openList(count);
    int received = 0;
    int reloads = 0;
    for (const QString &each : {VM_SERVICE_DID_START, VM_SERVICE_DID_STOP, VM_SERVICE_DID_CHANGE,
                                VM_SERVICE_DID_CREATE, VM_SERVICE_DID_DELETE}) {
        NotificationCenter::defaultCenter().addObserver(list.get(), each,
                                                        [&](const Notification &) { received++; });
    }
    QObject::connect(list.get(), &WelcomeWindowController::listReloaded, list.get(),
                     [&] { reloads++; });
    Heartbeat heartbeat;
    printIdle(heartbeat);
    QProcess sender;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
    sender.setProcessEnvironment(environment);
    sender.start(QStringLiteral(NOTIFICATION_STORM), {QString::number(signals_sent), ids.first()});
    waitFor([&] { return received > 0; });
    const double took = waitFor([&] { return received == signals_sent; });
    runFor(1000);
    sender.waitForFinished(deadline_ms);
    QDBusConnection::disconnectFromBus(name);
    printf("%d notifications within %.0f ms, %d VMs: %d reloads; longest stall %.1f ms, own work "
           "%.1f ms\n",
           signals_sent, took, count, reloads, heartbeat.longest_ms(), heartbeat.longestOwn_ms());
}

// Says when a list has been painted with all its rows, and ends the program.
class PaintWatch : public QObject
{
public:
    PaintWatch(WelcomeWindowController *list, int count)
        : QObject(list), m_list(list), m_count(count)
    {
        list->virtualMachinesTableView()->viewport()->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::Paint &&
            m_list->virtualMachinesController()->count() == m_count) {
            QTimer::singleShot(0, this, [] {
                printf("painted\n");
                QCoreApplication::exit(0);
            });
        }
        return false;
    }

private:
    WelcomeWindowController *m_list;
    const int m_count;
};

int paint_count = 0;

// The application's own parts, with a watch on the list.
AppParts watchedParts()
{
    AppParts parts = applicationParts();
    parts.makeWelcomeController = [] {
        WelcomeWindowController *list = WelcomeWindowController::controller();
        new PaintWatch(list, paint_count);
        return list;
    };
    return parts;
}

void benchStartUp(const QString &program, int count)
{
    makeLibrary(qEnvironmentVariable("HOME"), count);
    const PrivateBus bus;
    qputenv("DBUS_SESSION_BUS_ADDRESS", bus.address().toLocal8Bit());
    std::vector<double> times;
    for (int i = 0; i < 7; i++) {
        QElapsedTimer timer;
        timer.start();
        QProcess process;
        process.start(program, {u"paint"_s, QString::number(count)});
        process.waitForReadyRead(deadline_ms);
        times.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        process.waitForFinished(deadline_ms);
    }
    printf("start-up to a painted list of %d VMs: median %.0f ms\n", count, median(times));
}

} // namespace

// bench_list [reload|hung|storm|start-up [COUNT]]; all without arguments, each in a process and
// home of its own.
int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    const QString what = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const int count = argc > 2 ? atoi(argv[2]) : what == "reload"_L1 ? 1000 : 100;
    if (what == "paint"_L1) {
        paint_count = count;
        argc = 1;
        return tarvMain(argc, argv, watchedParts);
    }
    if (what.isEmpty()) {
        for (const QString &each : {u"reload"_s, u"hung"_s, u"storm"_s, u"start-up"_s})
            QProcess::execute(QString::fromLocal8Bit(argv[0]), {each});
        return 0;
    }
    const QTemporaryDir home;
    makeHome(home.path());
    const QApplication application(argc, argv);
    if (what == "reload"_L1)
        benchReload(count);
    else if (what == "hung"_L1)
        benchHung(count);
    else if (what == "storm"_L1)
        benchStorm(count);
    else
        benchStartUp(QCoreApplication::applicationFilePath(), count);
    return 0;
}
