#include "app/shell/SingleInstance.h"

#include "app/kit/AppLog.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>

#include <utility>

namespace {

const QString BUS_NAME = QStringLiteral("com.quelda.Tarv");
const QString OBJECT_PATH = QStringLiteral("/com/quelda/Tarv");
const QString INTERFACE_NAME = QStringLiteral("org.freedesktop.Application");
constexpr int ANSWER_WAIT_MS = 25000;

// The desktop's leave to come to the front, which Qt reads from the environment.
void takeActivationToken(const QVariantMap &platformData)
{
    const QString token = platformData.value(QStringLiteral("activation-token")).toString();
    if (!token.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
}

QVariantMap ownPlatformData()
{
    QVariantMap data;
    const QString token = qEnvironmentVariable("XDG_ACTIVATION_TOKEN");
    if (!token.isEmpty())
        data.insert(QStringLiteral("activation-token"), token);
    return data;
}

} // namespace

// The interface as D-Bus sees it.
class ApplicationAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    explicit ApplicationAdaptor(SingleInstance *instance)
        : QDBusAbstractAdaptor(instance), m_instance(instance)
    {
    }

    Q_SLOT void Activate(const QVariantMap &platform_data)
    {
        takeActivationToken(platform_data);
        later([this] { Q_EMIT m_instance->activationRequested(); });
    }

    Q_SLOT void Open(const QStringList &uris, const QVariantMap &platform_data)
    {
        takeActivationToken(platform_data);
        QList<QUrl> urls;
        for (const QString &uri : uris)
            urls.append(QUrl(uri));
        later([this, urls] { Q_EMIT m_instance->openRequested(urls); });
    }

    Q_SLOT void ActivateAction(const QString &action_name, const QVariantList &,
                               const QVariantMap &platform_data)
    {
        takeActivationToken(platform_data);
        later([this, action_name] { Q_EMIT m_instance->actionRequested(action_name); });
    }

private:
    SingleInstance *m_instance;

    // The caller has its answer before anything happens here: a modal alert must not keep it.
    void later(const std::function<void()> &work)
    {
        QMetaObject::invokeMethod(m_instance, work, Qt::QueuedConnection);
    }
};

SingleInstance::SingleInstance(QDBusConnection bus, QObject *parent)
    : QObject(parent), m_bus(std::move(bus))
{
    new ApplicationAdaptor(this);
}

SingleInstance::~SingleInstance()
{
    release();
    m_bus.unregisterObject(OBJECT_PATH);
}

void SingleInstance::release()
{
    if (!std::exchange(m_owner, false))
        return;
    // Not waited for: windows may still be open.
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ReleaseName"));
    m_bus.send(call << BUS_NAME);
}

SingleInstance::Role SingleInstance::claim()
{
    if (!m_bus.isConnected()) {
        appLog("tarv",
               QStringLiteral("no session bus (%1): changes made elsewhere are not seen, and "
                              "a second start is not noticed")
                   .arg(m_bus.lastError().message()));
        return Role::alone;
    }
    // The object is there before the name is, so that no call is missed.
    m_bus.registerObject(OBJECT_PATH, this);
    const auto reply =
        m_bus.interface()->registerService(BUS_NAME, QDBusConnectionInterface::DontQueueService,
                                           QDBusConnectionInterface::DontAllowReplacement);
    m_owner = reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
    if (!reply.isValid()) {
        appLog("tarv", QStringLiteral("%1: %2").arg(BUS_NAME, reply.error().message()));
        return Role::alone;
    }
    return m_owner ? Role::first : Role::second;
}

void SingleInstance::use(const QDBusConnection &bus)
{
    m_bus = bus;
    m_owner = false; // the name went with the old connection
    if (claim() == Role::second)
        appLog("tarv", QStringLiteral("another Tarv was started while the session bus was lost"));
    Q_EMIT connectionChanged();
}

bool SingleInstance::handOver(const QList<QUrl> &urls, QString *error)
{
    const QString method = urls.isEmpty() ? QStringLiteral("Activate") : QStringLiteral("Open");
    QDBusMessage call =
        QDBusMessage::createMethodCall(BUS_NAME, OBJECT_PATH, INTERFACE_NAME, method);
    if (!urls.isEmpty())
        call << QUrl::toStringList(urls, QUrl::FullyEncoded);
    call << ownPlatformData();
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, ANSWER_WAIT_MS);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return true;
    *error = reply.errorMessage();
    return false;
}

#include "SingleInstance.moc"
