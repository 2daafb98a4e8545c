#include "app/model/TarvVM.h"

#include "app/kit/BackgroundWork.h"
#include "app/model/ControllerRun.h"
#include "app/model/ListIcons.h"
#include "app/model/StatusAsker.h"
#include "app/model/TarvCTL.h"
#include "app/model/statusWord.h"
#include "hostlib/vms/vms.h"
#include "policy/owners.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/tarvhv.h"

#include <QHash>
#include <QLocale>
#include <QPointer>
#include <QUuid>

#include <cerrno>
#include <memory>
#include <mutex>
#include <utility>

using namespace Qt::StringLiterals;

namespace {
// Ahead of every refresh of the list: somebody waits for it.
constexpr int START_PRIORITY = 10;

// How the last run of each VM in this process's care ended, by lower-case identifier. Written on
// the main thread, read by workers too.
struct LocalStatuses
{
    std::mutex mutex;
    QHash<QString, int32_t> statuses;
};

LocalStatuses &localStatuses()
{
    static auto *const all = new LocalStatuses; // workers use it to the end
    return *all;
}

TarvVM::DisplayOpener &displayOpener()
{
    static TarvVM::DisplayOpener opener;
    return opener;
}

void runController(const QString &vmid, StartMode mode)
{
    const QString command = u"start"_s;
    // A VM that is being started or deleted is not started (again).
    if (ControllerRun::isUnderWay(command, vmid) || ControllerRun::isUnderWay(u"delete"_s, vmid))
        return;
    const QString option = QString::fromLatin1(start_mode_flags(mode));
    TarvCTL::executeCommand({command, option, vmid}, std::nullopt,
                            [](const QJsonValue &, const auto &) {});
}

void startOrShow(const QString &vmid, StartMode mode, bool running)
{
    if (!running && TarvHVStartVM(vmid.toUtf8().constData(), int32_t(mode)) != 0 &&
        errno == ENOSYS) {
        runController(vmid, mode);
        return;
    }
    if (const TarvVM::DisplayOpener &open = displayOpener())
        open(QString::fromStdString(place_vm_socket(vmid.toStdString())), 0);
}
} // namespace

TarvVM::TarvVM(const QString &vmid, QObject *parent) : QObject(parent), m_uuid(vmid) {}

TarvVM::TarvVM(const QString &vmid, const QString &name, const QString &status, QObject *parent)
    : QObject(parent), m_uuid(vmid), m_name(name), m_storedStatus(status)
{
}

void TarvVM::setVM(const QString &vmid, int32_t status)
{
    LocalStatuses &all = localStatuses();
    const std::lock_guard lock(all.mutex);
    all.statuses.insert(vmid.toLower(), status);
}

void TarvVM::setName(const QString &name)
{
    TarvCTL::executeCommand({u"modify"_s, m_uuid, u"set"_s, u"name"_s, name}, std::nullopt,
                            [self = QPointer(this), name](const QJsonValue &body, const auto &) {
                                if (!self || body.isNull() || body.isUndefined())
                                    return;
                                self->m_name = name;
                                Q_EMIT self->nameChanged();
                                Q_EMIT self->displayNameChanged();
                            });
}

void TarvVM::setVersion(const QString &version)
{
    if (m_version == version && m_version.isNull() == version.isNull())
        return;
    m_version = version;
    Q_EMIT versionChanged();
    Q_EMIT displayNameChanged();
}

void TarvVM::setPolicyEnabled(bool enabled)
{
    if (std::exchange(m_policyEnabled, enabled) != enabled)
        Q_EMIT policyEnabledChanged();
}

QString TarvVM::serviceStatus(const QString &vmid)
{
    const KvOwner status(vms_status(vmid.toUtf8().constData()));
    if (!status)
        return {};
    return QString::fromUtf8(
        kv_get_str(status.get(), "status", vm_status_word(VmStatus::malfunction)));
}

bool TarvVM::hasFailedHere(const QString &vmid)
{
    LocalStatuses &all = localStatuses();
    const std::lock_guard lock(all.mutex);
    return all.statuses.value(vmid.toLower()) != 0;
}

QString TarvVM::status() const
{
    if (m_uuid.isEmpty())
        return statusWord(VmStatus::stopped);
    if (QString service = serviceStatus(m_uuid); !service.isNull())
        return service;
    return hasFailedHere(m_uuid) || vms_exit_status(m_uuid.toUtf8().constData()) != 0
               ? statusWord(VmStatus::failed)
               : restingStatus();
}

QString TarvVM::restingStatus() const
{
    return m_storedStatus.isNull() ? statusWord(VmStatus::stopped) : m_storedStatus;
}

void TarvVM::setStatus(const QString &status)
{
    if (m_storedStatus == status && m_storedStatus.isNull() == status.isNull())
        return;
    m_storedStatus = status;
    Q_EMIT statusChanged();
    Q_EMIT displayStatusChanged();
}

QString TarvVM::displayName() const
{
    return m_version.isNull() ? m_name : u"%1 (%2)"_s.arg(m_name, shownVersion());
}

QString TarvVM::displayStatus() const
{
    return displayStatusOf(status());
}

QString TarvVM::displayStatusOf(const QString &status)
{
    const QLocale locale;
    QString title = locale.toLower(status);
    for (qsizetype i = 0; i < title.size(); i++)
        if (title.at(i).isLetter() && (i == 0 || !title.at(i - 1).isLetterOrNumber()))
            title.replace(i, 1, locale.toUpper(title.mid(i, 1)));
    return title;
}

QIcon TarvVM::displayIcon() const
{
    return m_policyEnabled ? displayIconFor(status()) : QIcon();
}

QIcon TarvVM::displayIconFor(const QString &status) const
{
    if (!m_policyEnabled)
        return {};
    return templateIcon(status == statusWord(VmStatus::running) ? u"lock-open"_s
                                                                : u"lock-closed"_s);
}

bool TarvVM::isEqual(const QVariant &object) const
{
    if (object.typeId() == QMetaType::QUuid) {
        return m_uuid.compare(object.toUuid().toString(QUuid::WithoutBraces),
                              Qt::CaseInsensitive) == 0;
    }
    if (object.typeId() == QMetaType::QString)
        return m_uuid.compare(object.toString(), Qt::CaseInsensitive) == 0;
    return isEqual(qobject_cast<const TarvVM *>(object.value<QObject *>()));
}

bool TarvVM::isEqual(const TarvVM *other) const
{
    return other && (other == this || m_uuid.compare(other->m_uuid, Qt::CaseInsensitive) == 0);
}

void TarvVM::start(StartMode mode)
{
    if (m_uuid.isEmpty())
        return startOrShow(m_uuid, mode, /*running=*/false);
    const auto told = [post = BackgroundWork::shared().poster(), vmid = m_uuid,
                       stored = m_storedStatus, mode,
                       preparation = ControllerRun::prepare()](const QString &status) {
        const QString known = status.isNull() ? stored : status;
        post([vmid, mode, preparation, running = known == statusWord(VmStatus::running)] {
            startOrShow(vmid, mode, running);
        });
    };
    askStatus(m_uuid, START_PRIORITY, told);
}

void TarvVM::start(StartMode mode, const QString &status)
{
    startOrShow(m_uuid, mode, status == statusWord(VmStatus::running));
}

void TarvVM::setDisplayOpener(DisplayOpener opener)
{
    displayOpener() = std::move(opener);
}
