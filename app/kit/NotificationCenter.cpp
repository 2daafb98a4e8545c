#include "app/kit/NotificationCenter.h"

#include <QPointer>

#include <algorithm>
#include <atomic>

struct NotificationCenter::Observer
{
    const QObject *context;
    QString name;
    Handler handler;
    std::atomic<bool> removed = false;
};

NotificationCenter &NotificationCenter::defaultCenter()
{
    // Never destroyed: contexts may outlive static objects.
    static auto *center = new NotificationCenter;
    return *center;
}

void NotificationCenter::post(const QString &name, const QVariant &object,
                              const QVariantMap &userInfo)
{
    std::vector<std::shared_ptr<Observer>> due;
    {
        std::lock_guard lock(m_mutex);
        std::copy_if(m_observers.begin(), m_observers.end(), std::back_inserter(due),
                     [&name](const auto &observer) { return observer->name == name; });
    }
    const Notification notification{name, object, userInfo};
    for (const auto &observer : due)
        if (!observer->removed)
            observer->handler(notification);
}

void NotificationCenter::addObserver(QObject *context, const QString &name, Handler handler)
{
    auto observer = std::make_shared<Observer>();
    observer->context = context;
    observer->name = name;
    observer->handler = std::move(handler);
    {
        std::lock_guard lock(m_mutex);
        m_observers.push_back(observer);
    }
    QObject::connect(context, &QObject::destroyed, [this](QObject *gone) { removeObserver(gone); });
}

void NotificationCenter::removeObserver(const QObject *context)
{
    remove(context, nullptr);
}

void NotificationCenter::removeObserver(const QObject *context, const QString &name)
{
    remove(context, &name);
}

void NotificationCenter::remove(const QObject *context, const QString *name)
{
    std::lock_guard lock(m_mutex);
    std::erase_if(m_observers, [&](const auto &observer) {
        if (observer->context != context || (name && observer->name != *name))
            return false;
        observer->removed = true;
        return true;
    });
}
