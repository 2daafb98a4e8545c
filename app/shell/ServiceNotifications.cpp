#include "app/shell/ServiceNotifications.h"

#include "app/kit/NotificationCenter.h"

namespace {

const QString PATH = QStringLiteral("/com/quelda/tarvhv");
const QString INTERFACE_NAME = QStringLiteral("com.quelda.tarvhv.notification");
constexpr const char *MEMBERS[] = {"start", "stop", "create", "delete", "change"};

} // namespace

ServiceNotifications::ServiceNotifications(QDBusConnection bus, QObject *parent) : QObject(parent)
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
