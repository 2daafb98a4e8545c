#include "tests/shell/shell_fixture.h"

#include "hostlib/config/config.h"
#include "hostlib/config/config_table.h"
#include "hostlib/utils/utils.h"
#include "platform/host.h"
#include "tests/support/scratch.h"

#include <QFile>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QStringList recorded(const QString &kind)
{
    const std::string record = read_file(privateHome().filePath(u"record"_s).toStdString());
    QStringList lines;
    for (const QString &line : QString::fromStdString(record).split(QChar(u'\0')))
        if (line.startsWith(kind))
            lines << line.mid(kind.size());
    return lines;
}

} // namespace

ShellTest::ShellTest(const QString &settings)
{
    for (const QString &file : {u"record"_s, u"commands"_s, u"mode"_s, u"log"_s})
        QFile::remove(path(file));
    QFile::link(QString::fromLatin1(CONTROLLER_RECORDER), path(u"tarvctl"_s));
    const QByteArray support = path(u"support"_s).toLocal8Bit();
    platform_set_path(PlatformPath::support_dir, support.constData());
    setSettings(settings);
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
    write_file(path(name).toStdString(), text.toStdString());
}

void ShellTest::setSettings(const QString &lines, const QString &controller)
{
    const QByteArray settings =
        u"[tarv]\ntarvctl_executable = %1\n%2\n"_s.arg(controller, lines).toLocal8Bit();
    if (config && settings.toStdString() == read_file(path(u"settings.ini"_s).toStdString()))
        return; // a thread of an earlier case may still read them
    write(u"settings.ini"_s, settings);
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
    return QString::fromStdString(read_file(path(u"log"_s).toStdString()));
}
