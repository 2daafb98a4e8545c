#include "tests/list/fixture.h"

#include "app/kit/UserDefaults.h"
#include "tarvhv/cli2.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTest>
#include <QUuid>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

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
                "{ for a in \"$@\"; do printf '%s ' \"$a\"; done; echo; } >> \"$TEST_RECORD\"\n"
                "printf '%s' \"$TEST_ANSWER\"\n"
                "[ -z \"$TEST_HANG\" ] || exec sleep 1000\n"
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

FakeService::FakeService(const QString &path, Handler handler)
    : m_path(path), m_handler(std::move(handler))
{
    m_listener = cli2_listen(qPrintable(path));
    EXPECT_GE(m_listener, 0) << qPrintable(path);
    EXPECT_EQ(pipe(m_wake), 0);
    m_thread = std::thread([this] { serve(); });
}

FakeService::~FakeService()
{
    close(m_wake[1]);
    m_thread.join();
    close(m_wake[0]);
    close(m_listener);
    QFile::remove(m_path);
}

void FakeService::serve()
{
    std::vector<pollfd> fds = {{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
    while (poll(fds.data(), fds.size(), -1) >= 0 && fds[0].revents == 0) {
        if (fds[1].revents) {
            if (const int fd = accept(m_listener, nullptr, nullptr); fd >= 0) {
                m_connections++;
                fds.push_back({fd, POLLIN, 0});
            }
        }
        for (size_t i = 2; i < fds.size(); i++) {
            char buffer[512];
            const ssize_t got =
                fds[i].revents ? recv(fds[i].fd, buffer, sizeof buffer, MSG_DONTWAIT) : -1;
            if (got > 0) {
                const std::string answer = m_handler(std::string(buffer, size_t(got)));
                send(fds[i].fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            } else if (got == 0) {
                close(std::exchange(fds[i].fd, -1));
            }
        }
    }
    for (size_t i = 2; i < fds.size(); i++) {
        close(fds[i].fd);
    }
}

bool waitFor(const std::function<bool()> &condition)
{
    return QTest::qWaitFor(condition, deadline_ms);
}

void ListTest::SetUp()
{
    controllerEnds(0, "{\"body\":{}}");
    qunsetenv("TEST_HANG");
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
    const QString path = u"/tmp/com.quelda.tarvhv.%1.%2.sock"_s.arg(id, QString::number(getuid()));
    m_services.push_back(std::make_unique<FakeService>(path, [kind](const std::string &) {
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

void ListTest::controllerHangs()
{
    qputenv("TEST_HANG", "1");
}

int main(int argc, char **argv)
{
    const QTemporaryDir home;
    makeHome(home.path());
    const QApplication application(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
