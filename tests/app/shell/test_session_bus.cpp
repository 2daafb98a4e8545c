#include "app/agreement/AdministratorRight.h"
#include "app/kit/NotificationCenter.h"
#include "app/shell/ServiceNotifications.h"
#include "app/shell/SessionBus.h"
#include "app/shell/SingleInstance.h"
#include "tests/app/fixtures/shell_fixture.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>

#include <atomic>
#include <optional>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

class SessionBusTest : public ShellTest
{
protected:
    PrivateBus bus;
    QList<QString> names;

    QDBusConnection connect(const char *name)
    {
        names << QLatin1String(name);
        return QDBusConnection::connectToBus(bus.address(), QLatin1String(name));
    }
    ~SessionBusTest() override
    {
        for (const QString &name : names)
            QDBusConnection::disconnectFromBus(name);
    }
};

// The authority, with one answer for everybody.
class Authority : public QDBusVirtualObject
{
public:
    bool authorized = false;
    QDBusMessage asked;

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        asked = message;
        QDBusArgument result;
        result.beginStructure();
        result << authorized << false;
        result.beginMap(QMetaType(QMetaType::QString), QMetaType(QMetaType::QString));
        result.endMap();
        result.endStructure();
        return connection.send(message.createReply(QVariant::fromValue(result)));
    }
};

std::optional<bool> askFor(const QDBusConnection &connection, QString *error)
{
    std::atomic<bool> done = false;
    bool obtained = false;
    std::thread asker([&] {
        obtained = obtainRightFromPolkit(connection, error);
        done = true;
    });
    const bool inTime = waitUntil([&] { return done.load(); });
    asker.join();
    return inTime ? std::optional(obtained) : std::nullopt;
}

} // namespace

TEST_F(SessionBusTest, runsAloneWithoutABus)
{
    SingleInstance alone(QDBusConnection::connectToBus(u"unix:path=/nowhere"_s, u"none"_s));
    EXPECT_EQ(alone.claim(), SingleInstance::Role::alone);
    EXPECT_TRUE(log().contains("no session bus"_L1));
    QDBusConnection::disconnectFromBus(u"none"_s);
}

TEST_F(SessionBusTest, takesALostBusUpAgainWithItsNameAndSignals)
{
    SessionBus session(bus.address().section(u",guid="_s, 0, 0));
    SingleInstance instance(session.connection());
    ASSERT_EQ(instance.claim(), SingleInstance::Role::first);
    ServiceNotifications services(session.connection());
    int again = 0;
    QObject::connect(&session, &SessionBus::reconnected, &session, [&] {
        again++;
        instance.use(session.connection());
        services.use(session.connection());
    });
    int changes = 0;
    int stops = 0;
    QObject context;
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(&context, VM_SERVICE_DID_CHANGE, [&](const Notification &) { changes++; });
    center.addObserver(&context, VM_SERVICE_DID_STOP, [&](const Notification &) { stops++; });
    for (int round = 1; round <= 2; round++) {
        bus.stop();
        ASSERT_TRUE(waitUntil([&] { return log().count("session bus is lost"_L1) == round; }));
        EXPECT_FALSE(waitUntil([&] { return again == round; }, 1200)) << "there is no bus";
        bus.startAgain();
        ASSERT_TRUE(waitUntil([&] { return again == round; }));
        EXPECT_EQ(changes, round) << "what happened meanwhile";
        QDBusConnection other = connect(round == 1 ? "other1" : "other2");
        EXPECT_TRUE(other.interface()->isServiceRegistered(u"com.quelda.Tarv"_s));
        SingleInstance second(other);
        EXPECT_EQ(second.claim(), SingleInstance::Role::second);
        other.send(QDBusMessage::createSignal(u"/com/quelda/tarvhv"_s,
                                              u"com.quelda.tarvhv.notification"_s, u"stop"_s)
                   << u"id"_s);
        EXPECT_TRUE(waitUntil([&] { return stops == round; }));
    }
    EXPECT_EQ(log().count("session bus is back"_L1), 2);
}

TEST_F(SessionBusTest, theAdministratorRightIsPolkitsAnswer)
{
    QString error;
    EXPECT_EQ(askFor(connect("asker"), &error), false) << "nobody is there to ask";
    EXPECT_FALSE(error.isEmpty());
    Authority authority;
    QDBusConnection service = connect("authority");
    ASSERT_TRUE(
        service.registerVirtualObject(u"/org/freedesktop/PolicyKit1/Authority"_s, &authority));
    ASSERT_TRUE(service.registerService(u"org.freedesktop.PolicyKit1"_s));
    EXPECT_EQ(askFor(connect("asker"), &error), false);
    EXPECT_TRUE(error.contains("refused"_L1));
    authority.authorized = true;
    EXPECT_EQ(askFor(connect("asker"), &error), true);
    EXPECT_EQ(authority.asked.signature(), u"(sa{sv})sa{ss}us"_s);
    EXPECT_EQ(authority.asked.arguments().value(1).toString(), u"com.quelda.tarv.admin"_s);
    EXPECT_EQ(authority.asked.arguments().value(3).toUInt(), 1u);
}
