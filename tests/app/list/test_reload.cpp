#include "app/kit/NotificationCenter.h"
#include "app/kit/PlainText.h"
#include "app/list/VirtualMachinesController.h"
#include "app/model/TarvVM.h"
#include "app/shell/ServiceNotifications.h"
#include "platform/file.h"
#include "tests/app/fixtures/list_fixture.h"
#include "tests/app/kit/PrivateBus.h"

#include <QDBusMessage>
#include <QFile>
#include <QLabel>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>

#include <thread>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
class Reload : public ListTest
{
protected:
    void reload()
    {
        const auto before = m_reloads->count();
        m_controller->reloadVirtualMachines();
        ASSERT_TRUE(waitUntil([&] { return m_reloads->count() > before; }));
    }

    QStringList names() const
    {
        QStringList all;
        for (const TarvVM *vm : m_controller->virtualMachinesController()->arrangedObjects())
            all.append(vm->name());
        return all;
    }

    template <class Widget>
    Widget *widget(const QString &name) const
    {
        return m_controller->window()->findChild<Widget *>(name);
    }
};
} // namespace

TEST_F(Reload, sortsByPlainComparisonAndMergesOnly)
{
    startLaunchService();
    const QString b = addVM(u"b"_s);
    addVM(u"A"_s);
    const QString z = addVM(u"Z"_s);
    writeVM(b, "localversion", "; comment\n12.4\n");
    open();
    EXPECT_EQ(names(), QStringList({u"A"_s, u"Z"_s, u"b"_s}));
    EXPECT_EQ(m_controller->virtualMachinesController()->find(b)->version(), u"12.4\n"_s);

    QFile::remove(vmFile(z, "config.yaml"));
    writeVM(b, "config.yaml", "name: renamed\nstate_file: s.img\n");
    addVM(u"M"_s);
    reload();
    EXPECT_EQ(names(), QStringList({u"A"_s, u"M"_s, u"Z"_s, u"b"_s}))
        << "a VM that vanished and the name of one that is known both stay";
    EXPECT_TRUE(waitUntil([&] { return shown(b) == u"suspended"_s; }));
    writeVM(b, "config.yaml", "name: renamed\n");
    reload();
    EXPECT_TRUE(waitUntil([&] { return shown(b) == u"stopped"_s; }));
}

TEST_F(Reload, leavesUnreadableVMsOutAndSaysWhy)
{
    const QString bad = randomId();
    writeVM(bad, "config.yaml", "name: [\n");
    open();
    const auto *empty = widget<QLabel>(u"noContainersLabel"_s);
    EXPECT_TRUE(empty->isVisibleTo(m_controller->window()));
    addVM(u"good"_s);
    NotificationCenter::defaultCenter().post(VM_SERVICE_DID_CREATE);
    EXPECT_TRUE(waitUntil([&] { return !empty->isVisibleTo(m_controller->window()); }));
    EXPECT_EQ(names(), QStringList(u"good"_s));
    const auto *line = widget<QToolButton>(u"unreadableButton"_s);
    EXPECT_FALSE(line->isHidden());
    EXPECT_TRUE(line->text().contains(u'1')) << qPrintable(line->text());
    widget<QToolButton>(u"unreadableButton"_s)->click();
    const auto *problems = widget<QTreeWidget>(u"problems"_s);
    ASSERT_TRUE(problems);
    EXPECT_EQ(problems->topLevelItem(0)->text(0), bad);
    EXPECT_TRUE(problems->topLevelItem(0)->text(1).startsWith(u"config.yaml: line"_s))
        << qPrintable(problems->topLevelItem(0)->text(1));

    writeVM(bad, "config.yaml", "name: mended\n");
    reload();
    EXPECT_EQ(names(), QStringList({u"good"_s, u"mended"_s}));
    EXPECT_TRUE(line->isHidden());
}

TEST_F(Reload, namesAndVersionsAreShownAsTheyStand)
{
    const QString id = addVM(u"<img src='/fifo'>"_s);
    writeVM(id, "localversion", "12.4\n");
    open();
    const auto *list = m_controller->virtualMachinesController();
    const auto text = [&](int column, int role) {
        return list->index(row(id), column).data(role).toString();
    };
    const QString name = u"<img src='/fifo'> (12.4)"_s;
    EXPECT_EQ(text(VirtualMachinesController::NameColumn, Qt::ToolTipRole),
              PlainText::forToolTip(name));
    EXPECT_EQ(text(VirtualMachinesController::VersionColumn, Qt::DisplayRole), u"12.4"_s);
}

TEST_F(Reload, aLockedConfigurationHidesNoOtherVM)
{
    const QString locked = addVM(u"locked"_s);
    addVM(u"free"_s);
    const int fd = platform_openat_locked(AT_FDCWD, qPrintable(vmFile(locked, "config.yaml")),
                                          O_RDWR, FileLock::exclusive, 0);
    ASSERT_GE(fd, 0);
    open();
    EXPECT_EQ(names(), QStringList(u"free"_s));
    EXPECT_TRUE(m_controller->unreadableVirtualMachines().contains(locked));
    reload();
    close(fd);
    EXPECT_TRUE(waitUntil([&] { return names().contains(u"locked"_s); }));
    EXPECT_TRUE(m_controller->unreadableVirtualMachines().isEmpty());
}

TEST_F(Reload, aSilentSupervisorDelaysNoOtherStatus)
{
    startLaunchService();
    const QString silent = addVM(u"silent"_s);
    supervise(silent, Supervisor::silent);
    const QString running = addVM(u"running"_s);
    supervise(running);
    const QString stopped = addVM(u"stopped"_s);
    open();
    EXPECT_TRUE(waitUntil([&] { return shown(running) == u"running"_s; }));
    EXPECT_TRUE(waitUntil([&] { return shown(stopped) == u"stopped"_s; }));
    EXPECT_TRUE(shown(silent).isNull()) << "it has not answered yet";
    EXPECT_TRUE(waitUntil([&] { return shown(silent) == u"malfunction"_s; }));
}

TEST_F(Reload, aStormOfNotificationsIsAFewReloads)
{
    constexpr int signals_sent = 10000;
    const PrivateBus bus;
    const ServiceNotifications notifications(
        QDBusConnection::connectToBus(bus.address(), u"storm"_s));
    const QString id = addVM(u"a"_s);
    open();
    int received = 0;
    for (const QString &name : {VM_SERVICE_DID_START, VM_SERVICE_DID_STOP, VM_SERVICE_DID_CHANGE,
                                VM_SERVICE_DID_CREATE, VM_SERVICE_DID_DELETE}) {
        NotificationCenter::defaultCenter().addObserver(m_controller.get(), name,
                                                        [&](const Notification &) {
                                                            if (++received == signals_sent - 1)
                                                                addVM(u"last"_s);
                                                        });
    }
    int beats = 0;
    QTimer heart;
    QObject::connect(&heart, &QTimer::timeout, [&] { beats++; });
    heart.start(10);
    // As fast as the bus takes them.
    std::thread sender([&] {
        QDBusConnection own = QDBusConnection::connectToBus(bus.address(), u"sender"_s);
        const QStringList members = {u"start"_s, u"stop"_s, u"create"_s, u"delete"_s, u"change"_s};
        for (int i = 0; i < signals_sent; i++)
            own.send(QDBusMessage::createSignal(u"/com/quelda/tarvhv"_s,
                                                u"com.quelda.tarvhv.notification"_s,
                                                members.at(i % members.size()))
                     << id);
    });
    EXPECT_TRUE(waitUntil([&] { return received == signals_sent; })) << received;
    EXPECT_GT(beats, 2) << "the event loop stood still";
    EXPECT_TRUE(waitUntil([&] { return names() == QStringList({u"a"_s, u"last"_s}); }));
    EXPECT_LT(m_reloads->count(), signals_sent / 10);
    sender.join();
    QDBusConnection::disconnectFromBus(u"sender"_s);
    QDBusConnection::disconnectFromBus(u"storm"_s);
}
