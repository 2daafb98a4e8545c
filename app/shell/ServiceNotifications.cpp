#include "app/shell/ServiceNotifications.h"

#include "app/kit/NotificationCenter.h"

namespace {

const QString PATH = QStringLiteral("/com/quelda/tarvhv");
const QString INTERFACE_NAME = QStringLiteral("com.quelda.tarvhv.notification");
constexpr const char *MEMBERS[] = {"start", "stop", "create", "delete", "change"};

} // namespace

ServiceNotifications::ServiceNotifications(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
{
    listen(bus);
}

void ServiceNotifications::use(const QDBusConnection &bus)
{
    listen(bus);
    NotificationCenter::defaultCenter().post(VM_SERVICE_DID_CHANGE);
}

void ServiceNotifications::listen(QDBusConnection bus)
{
    // Signals of the bus are connected by the slot's name; there is no typed form.
    for (const char *member : MEMBERS)
        bus.connect(QString(), PATH, INTERFACE_NAME, QLatin1String(member), this,
                    SLOT(received(QDBusMessage)));
}

void ServiceNotifications::received(const QDBusMessage &message)
{
    NotificationCenter::defaultCenter().post(INTERFACE_NAME + QLatin1Char('.') + message.member());
}
