#include "app/shell/SessionBus.h"

#include "app/kit/AppLog.h"

#include <chrono>
#include <utility>

namespace {

constexpr std::chrono::milliseconds RETRY_EVERY{500};

QString nextName()
{
    static int number = 0;
    return QStringLiteral("tarv-session-%1").arg(++number);
}

// Registers a connection under the name. Any thread.
bool connectAs(const QString &name, const QString &address)
{
    const QDBusConnection bus =
        address.isEmpty() ? QDBusConnection::connectToBus(QDBusConnection::SessionBus, name)
                          : QDBusConnection::connectToBus(address, name);
    return bus.isConnected();
}

} // namespace

SessionBus::SessionBus(const QString &address, QObject *parent)
    : QObject(parent), m_address(address), m_name(nextName())
{
    m_due.setSingleShot(true);
    m_due.setInterval(RETRY_EVERY);
    connect(&m_due, &QTimer::timeout, this, &SessionBus::retry);
    // Without a bus at the start there is none to wait for: the session has none.
    if (connectAs(m_name, m_address))
        watch();
}

SessionBus::~SessionBus()
{
    QDBusConnection::disconnectFromBus(m_name);
}

// The library itself sends this signal to its connection. It is connected by the slot's name; there
// is no typed form.
void SessionBus::watch()
{
    connection().connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                         QStringLiteral("org.freedesktop.DBus.Local"),
                         QStringLiteral("Disconnected"), this, SLOT(disconnected()));
}

void SessionBus::disconnected()
{
    appLog("tarv",
           QStringLiteral("the session bus is lost: changes made elsewhere are not seen, and "
                          "a second start is not noticed, until it is back"));
    m_due.start();
}

void SessionBus::retry()
{
    m_work.run(BackgroundWork::Lane::launchService,
               [this, name = nextName(), address = m_address]() -> BackgroundWork::Continuation {
                   const bool connected = connectAs(name, address);
                   if (!connected)
                       QDBusConnection::disconnectFromBus(name);
                   return [this, name, connected] {
                       if (!connected)
                           return m_due.start();
                       QDBusConnection::disconnectFromBus(std::exchange(m_name, name));
                       watch();
                       appLog("tarv", QStringLiteral("the session bus is back"));
                       Q_EMIT reconnected();
                   };
               });
}
