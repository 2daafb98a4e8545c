#include "app/model/TarvCTL.h"

#include "app/kit/Alert.h"
#include "app/kit/AppLog.h"
#include "app/kit/SupportFiles.h"
#include "app/kit/WindowController.h"
#include "app/model/ControllerRun.h"
#include "hostlib/utils/utils.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QPointer>
#include <QTimer>

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int ABORT_AFTER_MS = 5000;

QJsonObject parseAnswer(const QByteArray &output, bool whole)
{
    if (!whole) {
        appLog("ctl", QStringLiteral("failed to parse the response: larger than %1 bytes")
                          .arg(ControllerRun::OUTPUT_MAX));
        return {};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(output, &error);
    if (error.error != QJsonParseError::NoError)
        appLog("ctl", QStringLiteral("failed to parse the response: %1").arg(error.errorString()));
    return document.object();
}

} // namespace

TarvCTL::TarvCTL(QObject *parent) : QObject(parent) {}

TarvCTL::~TarvCTL()
{
    if (m_run) {
        m_run->forget();
        m_run->signal(SIGKILL);
    }
}

void TarvCTL::execute(const QStringList &arguments, const std::optional<Environment> &environment,
                      const CompletionHandler &handler)
{
    ControllerLaunch launch = controllerLaunch(arguments, environment);
    launch.standardError = m_standardError >= 0 ? m_standardError : log_fd;
    const QString command = arguments.value(0);
    if (launch.program.isEmpty()) {
        failToLaunch(tr("The setting \"tarvctl_executable\" names no program to run \"%1\" with")
                         .arg(command),
                     ENOENT, handler);
        return;
    }
    detachRun(); // a runner follows one command at a time
    // Written by the run's thread before the end is posted, read after it.
    const auto answer = std::make_shared<QJsonObject>();
    m_run = ControllerRun::launch(
        launch,
        [answer](const QByteArray &output, bool whole) { *answer = parseAnswer(output, whole); },
        [this, answer, command, handler] { ended(*answer, command, handler); });
    if (!m_run) {
        const int error = errno;
        failToLaunch(tr("%1 can't be started: %2")
                         .arg(launch.program, QString::fromLocal8Bit(strerror(error))),
                     error, handler);
        return;
    }
    m_processIdentifier = m_run->pid();
}

void TarvCTL::ended(const QJsonObject &answer, const QString &command,
                    const CompletionHandler &handler)
{
    const QPointer<TarvCTL> self(this);
    m_processIdentifier = -1;
    const int status = exitStatus();
    if (status == 0) {
        if (handler)
            handler(answer.isEmpty() ? QJsonValue(QJsonValue::Undefined)
                                     : answer.value(QLatin1String("body")),
                    std::nullopt);
        if (self)
            release();
        return;
    }
    const auto message = typedValues::stringForKey(answer, QStringLiteral("message"));
    appLog("ctl",
           QStringLiteral("%1 command failed with status %2: %3")
               .arg(command, QString::number(status), message.value_or(QStringLiteral("(null)"))));
    TarvError error{QStringLiteral("TarvCTLError"), status, {}};
    error.description = message ? *message
                                : tr("Operation failed with status %d")
                                      .replace(QLatin1String("%d"), QString::number(status));
    fail(error, handler);
}

// The end is reported later, as that of a command that was started.
void TarvCTL::failToLaunch(const QString &reason, int error, const CompletionHandler &handler)
{
    appLog("ctl", reason);
    const TarvError description{QStringLiteral("POSIX"), error, reason};
    QMetaObject::invokeMethod(
        this, [this, description, handler] { fail(description, handler); }, Qt::QueuedConnection);
}

void TarvCTL::fail(const TarvError &error, const CompletionHandler &handler)
{
    if (m_silent) {
        release();
        return;
    }
    const QPointer<TarvCTL> self(this);
    const auto dismissed = [self, handler, error] {
        if (handler)
            handler(QJsonValue(QJsonValue::Undefined), error);
        if (self)
            self->release();
    };
    if (m_present && m_present(error))
        return dismissed();
    Alert alert(error.description);
    alert.setCritical();
    QWidget *keyWindow = WindowController::keyWindow();
    if (!keyWindow) {
        alert.runModal();
        dismissed();
        return;
    }
    // The window can go before the alert is dismissed.
    const auto once = std::make_shared<bool>(false);
    const auto dismissedOnce = [once, dismissed] {
        if (!std::exchange(*once, true))
            dismissed();
    };
    QMessageBox *box = alert.beginSheet(keyWindow, [dismissedOnce](int) { dismissedOnce(); });
    connect(box, &QObject::destroyed, this, dismissedOnce);
}

void TarvCTL::release()
{
    if (m_ownsItself)
        deleteLater();
}

void TarvCTL::abort()
{
    if (!m_run || !m_run->isRunning())
        return;
    m_run->signal(SIGTERM);
    QTimer::singleShot(ABORT_AFTER_MS, Qt::PreciseTimer, this, [this] {
        if (m_run)
            m_run->signal(SIGABRT);
    });
}

void TarvCTL::detach()
{
    if (detachRun())
        release();
}

bool TarvCTL::detachRun()
{
    if (!m_run)
        return false;
    m_run->forget();
    m_run.reset();
    return true;
}

bool TarvCTL::isRunning() const
{
    return m_run && m_run->isRunning();
}

int32_t TarvCTL::exitStatus() const
{
    return m_run ? m_run->exitStatus() : 0;
}

TarvCTL *TarvCTL::executeCommand(const QStringList &arguments,
                                 const std::optional<Environment> &environment,
                                 const CompletionHandler &handler)
{
    auto *runner = new TarvCTL;
    runner->m_ownsItself = true;
    runner->execute(arguments, environment, handler);
    return runner;
}

bool TarvCTL::isEulaAccepted()
{
    return access(supportFile(".TarvEulaAccepted").toLocal8Bit().constData(), F_OK) == 0;
}
