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

    // The value, or false, 0 and empty where the key is not set.
    bool boolForKey(const QString &key) const;
    qint64 integerForKey(const QString &key) const;
    QString stringForKey(const QString &key) const;
    QByteArray dataForKey(const QString &key) const;

    void setBool(const QString &key, bool value);
    void setInteger(const QString &key, qint64 value);
    void setString(const QString &key, const QString &value);
    void setData(const QString &key, const QByteArray &value);
};
