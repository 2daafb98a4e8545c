#include "app/model/ControllerLaunch.h"

#include "app/kit/BackgroundWork.h"
#include "hostlib/config/config.h"
#include "platform/child.h"
#include "platform/process.h"

#include <QCoreApplication>

#include <fcntl.h>
#include <unistd.h>

namespace {

QMap<QByteArray, QByteArray> ownEnvironment()
{
    QMap<QByteArray, QByteArray> map;
    for (char **entry = environ; *entry; ++entry) {
        const QByteArray text(*entry);
        const qsizetype equals = text.indexOf('=');
        if (equals > 0)
            map.insert(text.left(equals), text.mid(equals + 1));
    }
    for (const QByteArray &name : BackgroundWork::ownVariables())
        map.remove(name);
    return map;
}

QMap<QByteArray, QByteArray> encoded(const QMap<QString, QString> &environment)
{
    QMap<QByteArray, QByteArray> map;
    for (auto entry = environment.begin(); entry != environment.end(); ++entry)
        map.insert(entry.key().toLocal8Bit(), entry.value().toLocal8Bit());
    return map;
}

// Asked for once: a directory service may be slow to tell.
const QByteArray &ownName()
{
    static const QByteArray name = [] {
        const char *user = platform_user_name(getuid());
        return user ? QByteArray(user) : QByteArray::number(getuid());
    }();
    return name;
}

} // namespace

ControllerLaunch controllerLaunch(const QStringList &arguments,
                                  const std::optional<QMap<QString, QString>> &environment)
{
    ControllerLaunch launch;
    launch.program = QString::fromLocal8Bit(config_get_path("tarvctl_executable"));
    launch.arguments = arguments;
    launch.environment = environment ? encoded(*environment) : ownEnvironment();
    launch.environment["TARV_MACHINE_READABLE"] = "1";
    launch.environment["TARV_TARV_VIEWER"] = QCoreApplication::applicationFilePath().toLocal8Bit();
    launch.environment["USER"] = ownName();
    return launch;
}

QString commandKind(const QStringList &arguments)
{
    const QString force = QStringLiteral("--force");
    const QString command = arguments.value(0);
    return arguments.contains(force) ? command + QLatin1Char(' ') + force : command;
}

pid_t spawnController(const ControllerLaunch &launch, int output)
{
    const std::string program = launch.program.toLocal8Bit().toStdString();
    ChildLaunch plain{.program = program, .arguments = {program}};
    plain.environment.emplace();
    for (const QString &argument : launch.arguments)
        plain.arguments.push_back(argument.toLocal8Bit().toStdString());
    for (auto entry = launch.environment.begin(); entry != launch.environment.end(); ++entry)
        plain.environment->push_back((entry.key() + '=' + entry.value()).toStdString());
    plain.in = fcntl(STDIN_FILENO, F_GETFD) < 0 ? -1 : STDIN_FILENO;
    plain.out = output;
    plain.err = launch.standardError;
    Child child;
    return child.start(plain) == 0 ? child.release() : -1;
}
