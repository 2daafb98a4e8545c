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
    explicit ServiceNotifications(QDBusConnection bus = QDBusConnection::sessionBus(),
                                  QObject *parent = nullptr);

private Q_SLOTS:
    void received(const QDBusMessage &message);
};
