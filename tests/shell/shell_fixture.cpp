#include "tests/shell/shell_fixture.h"

#include "app/shell/TarvApplication.h"
#include "hostlib/config/config.h"
#include "hostlib/config/config_table.h"
#include "hostlib/utils/utils.h"
#include "platform/host.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Keys are routed by the application object.
QApplication *makeApplication(int &argc, char **argv)
{
    return new TarvApplication(argc, argv);
}

[[maybe_unused]] const bool g_set = (testApplicationMaker = makeApplication);

QStringList recorded(const QString &kind)
{
    QFile file(privateHome().filePath(u"record"_s));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList lines;
    for (const QString &line : QString::fromLocal8Bit(file.readAll()).split(QChar(u'\0')))
        if (line.startsWith(kind))
            lines << line.mid(kind.size());
    return lines;
}

} // namespace

ShellTest::ShellTest()
{
    QFile::remove(path(u"record"_s));
    QFile::remove(path(u"mode"_s));
    QFile::remove(path(u"log"_s));
    QFile::link(QString::fromLatin1(CONTROLLER_RECORDER), path(u"tarvctl"_s));
    const QByteArray support = path(u"support"_s).toLocal8Bit();
    platform_set_path(PlatformPath::support_dir, support.constData());
    setSettings(QString());
    if (log_fd > 2)
        close(log_fd);
    log_fd = open(path(u"log"_s).toLocal8Bit().constData(),
                  O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
}

QString ShellTest::path(const QString &name)
{
    return privateHome().filePath(name);
}

void ShellTest::write(const QString &name, const QByteArray &text)
{
    QFile file(path(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text);
}

void ShellTest::setSettings(const QString &lines)
{
    const QString settings =
        u"[tarv]\ntarvctl_executable = %1\n%2\n"_s.arg(path(u"tarvctl"_s), lines);
    write(u"settings.ini"_s, settings.toLocal8Bit());
    qputenv("TARV_CONFIG_PATH", path(u"settings.ini"_s).toLocal8Bit());
    config_table_free(config);
    config = nullptr;
}

void ShellTest::setController(const QString &mode)
{
    write(u"mode"_s, mode.toLocal8Bit());
}

QStringList ShellTest::recordedArguments()
{
    return recorded(u"argument "_s);
}

QStringList ShellTest::recordedEnvironment()
{
    return recorded(u"environment "_s);
}

QString ShellTest::log()
{
    QFile file(path(u"log"_s));
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
}
