// The VM services' notifications: signals on the session bus, re-posted inside the process.
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

// While it lives, each of the five (start, stop, create, delete, change) is posted in the default
// NotificationCenter as "com.quelda.tarvhv.notification.<member>", without an object.
class ServiceNotifications : public QObject
{
    Q_OBJECT

public:
    explicit ServiceNotifications(const QDBusConnection &bus, QObject *parent = nullptr);
    // Listens on another connection, after the bus was lost. What happened meanwhile counts as one
    // change.
    void use(const QDBusConnection &bus);

private:
    void listen(QDBusConnection bus);
    Q_SLOT void received(const QDBusMessage &message);
};
