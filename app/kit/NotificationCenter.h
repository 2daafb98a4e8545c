// Named notifications inside the process: whoever posts does not know who observes.
#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct Notification
{
    QString name;
    QVariant object; // what it is about; invalid without one
    QVariantMap userInfo;
};

// The VM services' notifications, as re-posted by the application delegate (without an object).
inline const QString VM_SERVICE_DID_START = QStringLiteral("com.quelda.tarvhv.notification.start");
inline const QString VM_SERVICE_DID_STOP = QStringLiteral("com.quelda.tarvhv.notification.stop");
inline const QString VM_SERVICE_DID_CREATE =
    QStringLiteral("com.quelda.tarvhv.notification.create");
inline const QString VM_SERVICE_DID_DELETE =
    QStringLiteral("com.quelda.tarvhv.notification.delete");
inline const QString VM_SERVICE_DID_CHANGE =
    QStringLiteral("com.quelda.tarvhv.notification.change");

class NotificationCenter
{
public:
    using Handler = std::function<void(const Notification &)>;

    static NotificationCenter &defaultCenter();

    // Calls every observer of the name, in the order in which they were added and on this thread,
    // before it returns. Observers added meanwhile are not called; those removed meanwhile are not
    // called any more.
    void post(const QString &name, const QVariant &object = {}, const QVariantMap &userInfo = {});
    // Observes a name until the context is destroyed.
    void addObserver(QObject *context, const QString &name, Handler handler);
    void removeObserver(const QObject *context);
    void removeObserver(const QObject *context, const QString &name);

private:
    struct Observer;
    std::mutex m_mutex;
    std::vector<std::shared_ptr<Observer>> m_observers;

    void remove(const QObject *context, const QString *name);
};
