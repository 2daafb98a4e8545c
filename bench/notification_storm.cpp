// notification_storm COUNT ID: sends so many notifications about a VM on the session bus, as fast
// as the bus takes them, and ends when it has taken all.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (arguments.size() != 3 || !bus.isConnected())
        return EXIT_FAILURE;
    const QStringList members = {u"start"_s, u"stop"_s, u"create"_s, u"delete"_s, u"change"_s};
    bool sent = true;
    for (int i = 0; i < arguments.at(1).toInt(); i++)
        sent = bus.send(QDBusMessage::createSignal(u"/com/quelda/tarvhv"_s,
                                                   u"com.quelda.tarvhv.notification"_s,
                                                   members.at(i % members.size()))
                        << arguments.at(2)) &&
               sent;
    // Its answer comes after the bus has taken what went before.
    return sent && bus.interface()->isServiceRegistered(bus.baseService()) ? EXIT_SUCCESS
                                                                           : EXIT_FAILURE;
}
