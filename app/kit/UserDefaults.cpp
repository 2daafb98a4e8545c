#include "app/kit/UserDefaults.h"

#include <QSettings>

namespace {

// A QSettings object is cheap: those of one file share its contents.
QSettings settings()
{
    return QSettings(QStringLiteral("Quelda"), QStringLiteral("Tarv"));
}

} // namespace

UserDefaults &UserDefaults::standard()
{
    static UserDefaults defaults;
    return defaults;
}

bool UserDefaults::hasKey(const QString &key) const
{
    return settings().contains(key);
}

void UserDefaults::removeKey(const QString &key)
{
    settings().remove(key);
}

bool UserDefaults::boolForKey(const QString &key) const
{
    return settings().value(key, false).toBool();
}

QByteArray UserDefaults::dataForKey(const QString &key) const
{
    return settings().value(key).toByteArray();
}

void UserDefaults::setBool(const QString &key, bool value)
{
    settings().setValue(key, value);
}

void UserDefaults::setData(const QString &key, const QByteArray &value)
{
    settings().setValue(key, value);
}
