// The user's preferences, kept by QSettings("Quelda", "Tarv") under the documented keys.
#pragma once

#include <QByteArray>
#include <QString>

class UserDefaults
{
public:
    static UserDefaults &standard();

    bool hasKey(const QString &key) const;
    void removeKey(const QString &key);

    // The value, or false and empty where the key is not set.
    bool boolForKey(const QString &key) const;
    QByteArray dataForKey(const QString &key) const;

    void setBool(const QString &key, bool value);
    void setData(const QString &key, const QByteArray &value);
};
