#include "app/shell/ServiceNotifications.h"

#include "app/kit/NotificationCenter.h"

namespace {

const QString path = QStringLiteral("/com/quelda/tarvhv");
const QString interfaceName = QStringLiteral("com.quelda.tarvhv.notification");
constexpr const char *members[] = {"start", "stop", "create", "delete", "change"};

} // namespace

ServiceNotifications::ServiceNotifications(QDBusConnection bus, QObject *parent) : QObject(parent)
{
    // Signals of the bus are connected by the slot's name; there is no typed form.
    for (const char *member : members)
        bus.connect(QString(), path, interfaceName, QLatin1String(member), this,
                    SLOT(received(QDBusMessage)));
}

void ServiceNotifications::received(const QDBusMessage &message)
{
    NotificationCenter::defaultCenter().post(interfaceName + QLatin1Char('.') + message.member());
}
