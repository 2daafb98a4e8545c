#include "app/agreement/AdministratorRight.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QUuid>

#include <limits>

#include <unistd.h>

namespace {

const QString ACTION_ID = QStringLiteral("com.quelda.tarv.admin");
constexpr uint ALLOW_USER_INTERACTION = 1;

// The context of the errors' translations.
struct Text
{
    Q_DECLARE_TR_FUNCTIONS(AdministratorRight)
};

} // namespace

// polkit's Subject, (sa{sv}): who asks. The bus knows which process stands behind a name.
struct PolkitSubject
{
    QString kind;
    QVariantMap details;
};
Q_DECLARE_METATYPE(PolkitSubject)

static QDBusArgument &operator<<(QDBusArgument &argument, const PolkitSubject &subject)
{
    argument.beginStructure();
    argument << subject.kind << subject.details;
    argument.endStructure();
    return argument;
}

static const QDBusArgument &operator>>(const QDBusArgument &argument, PolkitSubject &subject)
{
    argument.beginStructure();
    argument >> subject.kind >> subject.details;
    argument.endStructure();
    return argument;
}

// The answer (bba{ss}): authorized, a challenge would be needed, details.
static bool isAuthorized(const QDBusMessage &reply)
{
    if (reply.signature() != QLatin1String("(bba{ss})"))
        return false;
    const auto result = reply.arguments().value(0).value<QDBusArgument>();
    bool authorized = false;
    bool challenge = false;
    QMap<QString, QString> details;
    result.beginStructure();
    result >> authorized >> challenge >> details;
    result.endStructure();
    return authorized;
}

bool obtainRightFromPolkit(const QDBusConnection &bus, QString *error)
{
    if (!bus.isConnected()) {
        *error = Text::tr("The administrator right can't be asked for: there is no system bus");
        return false;
    }
    qDBusRegisterMetaType<PolkitSubject>();
    qDBusRegisterMetaType<QMap<QString, QString>>();
    const PolkitSubject subject{QStringLiteral("system-bus-name"),
                                {{QStringLiteral("name"), bus.baseService()}}};
    QDBusMessage call =
        QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.PolicyKit1"),
                                       QStringLiteral("/org/freedesktop/PolicyKit1/Authority"),
                                       QStringLiteral("org.freedesktop.PolicyKit1.Authority"),
                                       QStringLiteral("CheckAuthorization"));
    call << QVariant::fromValue(subject) << ACTION_ID
         << QVariant::fromValue(QMap<QString, QString>()) << ALLOW_USER_INTERACTION << QString();
    // As long as the user takes to type a password.
    const QDBusMessage reply = bus.call(call, QDBus::Block, std::numeric_limits<int>::max());
    if (reply.type() != QDBusMessage::ReplyMessage) {
        *error =
            Text::tr("The administrator right can't be asked for: %1").arg(reply.errorMessage());
        return false;
    }
    if (!isAuthorized(reply)) {
        *error = Text::tr("The administrator right was refused");
        return false;
    }
    return true;
}

bool obtainAdministratorRight(QString *error)
{
    if (geteuid() == 0)
        return true;
    // A connection of its own: this one is used on the asking thread alone.
    const QString name = QUuid::createUuid().toString();
    const bool obtained = obtainRightFromPolkit(
        QDBusConnection::connectToBus(QDBusConnection::SystemBus, name), error);
    QDBusConnection::disconnectFromBus(name);
    return obtained;
}
