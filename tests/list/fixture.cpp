#include "tests/list/fixture.h"

#include "app/kit/UserDefaults.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {
constexpr int deadline_ms = 20000;

// One for the process: settings are read once.
QString &root()
{
    static QString path;
    return path;
}

void write(const QString &path, const QByteArray &text)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << qPrintable(path);
    file.write(text);
}

void makeController(const QString &path)
{
    write(path, "#!/bin/sh\n"
                "line=\n"
                "for a in \"$@\"; do line=\"$line$a \"; done\n"
                "printf '%s\\n' \"$line\" >> \"$TEST_RECORD\"\n" // at once: others write too
                "printf '%s' \"$TEST_ANSWER\"\n"
                "exit \"$TEST_STATUS\"\n");
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void makeHome(const QString &home)
{
    root() = home;
    QDir(home).mkpath(u"vms"_s);
    makeController(home + u"/controller"_s);
    const QString settings = u"[tarv]\nvm_lib_dir = %1/vms\nimg_lib_dir = %1/images\n"
                             "vlaunch_sock = %1/launch\ntarvctl_executable = %1/controller\n"_s;
    write(home + u"/settings.ini"_s, settings.arg(home).toUtf8());
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + u"/config"_s).toUtf8());
    qputenv("TARV_CONFIG_PATH", (home + u"/settings.ini"_s).toUtf8());
    qputenv("TARV_HOST_ARM64", "0");
    qputenv("TEST_RECORD", (home + u"/record"_s).toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
}
} // namespace

bool waitFor(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, deadline_ms);
}

void ListTest::SetUp()
{
    controllerEnds(0, "{\"body\":{}}");
}

void ListTest::TearDown()
{
    m_services.clear();
    QDir(root() + u"/vms"_s).removeRecursively();
    QDir(root()).mkpath(u"vms"_s);
    QFile::remove(root() + u"/record"_s);
    QSettings(u"Quelda"_s, u"Tarv"_s).clear();
}

QString ListTest::randomId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString ListTest::addVM(const QString &name, const QString &more)
{
    const QString id = randomId();
    writeVM(id, "config.yaml", u"name: \"%1\"\n%2"_s.arg(name, more).toUtf8());
    return id;
}

QString ListTest::vmFile(const QString &id, const char *file) const
{
    return root() + u"/vms/"_s + id + u'/' + QString::fromLatin1(file);
}

void ListTest::writeVM(const QString &id, const char *file, const QByteArray &text)
{
    QDir(root()).mkpath(u"vms/"_s + id);
    write(vmFile(id, file), text);
}

FakeService *ListTest::supervise(const QString &id, Supervisor kind)
{
    m_services.push_back(
        std::make_unique<FakeService>(supervisorPath(id), [kind](const std::string &) {
            return kind == Supervisor::silent
                       ? std::string()
                       : "{\"status\":\"OK\",\"body\":{\"state\":\"running\"}}\r\n";
        }));
    return m_services.back().get();
}

void ListTest::startLaunchService(int exitStatus)
{
    m_services.push_back(
        std::make_unique<FakeService>(root() + u"/launch"_s, [exitStatus](const std::string &got) {
            // The label ends with its second quotation mark and may come by itself.
            return got.back() != '"'
                       ? std::string()
                       : "{\"status\":\"OK\",\"body\":{\"status\":" + std::to_string(exitStatus) +
                             "}}\r\n";
        }));
}

QStringList ListTest::recorded() const
{
    QFile file(root() + u"/record"_s);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    for (QString &line : lines) {
        line = line.trimmed();
    }
    return lines;
}

bool ListTest::waitForRecorded(int count) const
{
    return waitFor([&] { return recorded().size() >= count; });
}

void ListTest::controllerEnds(int status, const char *answer)
{
    qputenv("TEST_STATUS", QByteArray::number(status));
    qputenv("TEST_ANSWER", answer);
}

int main(int argc, char **argv)
{
    const QTemporaryDir home;
    makeHome(home.path());
    const QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
