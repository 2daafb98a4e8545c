#include "tests/e2e/Desktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUuid>

#include <csignal>
#include <unistd.h>

namespace {

constexpr int ScreenWidth = 2048;
constexpr int ScreenHeight = 1280;

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void write(const QString &path, const QByteArray &text)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(text);
    }
}

} // namespace

bool waitUntil(std::chrono::milliseconds limit, const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > limit.count()) {
            return false;
        }
        QCoreApplication::processEvents();
        usleep(20000);
    }
    return true;
}

qint64 residentBytes(pid_t pid)
{
    const QList<QByteArray> fields = contents(QStringLiteral("/proc/%1/statm").arg(pid)).split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

bool processRuns(pid_t pid)
{
    const QByteArray stat = contents(QStringLiteral("/proc/%1/stat").arg(pid));
    const qsizetype end = stat.lastIndexOf(')');
    return end >= 0 && stat.mid(end + 2, 1) != "Z";
}

Desktop::Desktop() : m_environment(QProcessEnvironment::systemEnvironment())
{
    for (const QString &name : m_environment.keys()) {
        if (name.startsWith(QLatin1String("TARV_")) || name.startsWith(QLatin1String("XDG_")) ||
            name.startsWith(QLatin1String("QT_")) || name.startsWith(QLatin1String("WAYLAND")) ||
            name == QLatin1String("LANGUAGE")) {
            m_environment.remove(name);
        }
    }
    for (const char *directory : {"runtime", "data", "data/vms", "data/images", "support"}) {
        QDir().mkpath(path(QLatin1String(directory)));
    }
    QFile::setPermissions(path(QStringLiteral("runtime")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setVariable(QStringLiteral("HOME"), m_home.path());
    setVariable(QStringLiteral("XDG_CONFIG_HOME"), path(QStringLiteral("config")));
    setVariable(QStringLiteral("XDG_RUNTIME_DIR"), path(QStringLiteral("runtime")));
    setVariable(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    setVariable(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    setVariable(QStringLiteral("TARV_SUPPORT_DIR"), path(QStringLiteral("support")));
    setVariable(QStringLiteral("TARV_CONFIG_PATH"), path(QStringLiteral("settings.ini")));
    write(path(QStringLiteral("support/.TarvEulaAccepted")), QByteArray());
    m_settings = QString::fromUtf8(output(
        QStringLiteral(WRITE_SETTINGS), {QStringLiteral(TARV_BIN), path(QStringLiteral("data"))}));
    addSetting(QStringLiteral("engine_accel"), QStringLiteral("tcg"));
    addSetting(QStringLiteral("stop_wait"), QStringLiteral("1"));
    if (m_settings.isEmpty()) {
        m_problem = QStringLiteral("the settings can't be made");
    } else if (!openScreen()) {
        m_problem = QStringLiteral("no virtual screen: ") + log(QStringLiteral("Xvfb"));
    } else if (!openBus()) {
        m_problem = QStringLiteral("no session bus: ") + log(QStringLiteral("dbus-daemon"));
    }
}

Desktop::~Desktop()
{
    // The application first, so that it does not see the rest go; then VMs, by their supervisors.
    while (!m_children.empty() && m_children.back()->objectName() == QLatin1String("tarv")) {
        m_children.back()->kill();
        m_children.back()->waitForFinished(5000);
        m_children.pop_back();
    }
    endProcesses(QStringLiteral("tarvvm"), SIGTERM);
    endProcesses(QStringLiteral("vlaunchd"), SIGTERM);
    for (const char *program : {"tarv", "tarvctl", "tarvvm", "vlaunchd", "qemu-system-x86_64"}) {
        endProcesses(QLatin1String(program), SIGKILL);
    }
    while (!m_children.empty()) {
        m_children.back()->terminate();
        if (!m_children.back()->waitForFinished(5000)) {
            m_children.back()->kill();
            m_children.back()->waitForFinished(5000);
        }
        m_children.pop_back();
    }
}

void Desktop::endProcesses(const QString &program, int signal)
{
    for (pid_t pid : processes(program)) {
        kill(pid, signal);
        waitUntil(std::chrono::seconds(10), [pid] { return !processRuns(pid); });
    }
}

void Desktop::addSetting(const QString &key, const QString &value)
{
    m_settings += key + QStringLiteral(" = ") + value + QLatin1Char('\n');
    write(path(QStringLiteral("settings.ini")), m_settings.toUtf8());
}

void Desktop::setVariable(const QString &name, const QString &value)
{
    m_environment.insert(name, value);
}

QProcess *Desktop::start(const QString &name, const QString &program, const QStringList &arguments)
{
    auto child = std::make_unique<QProcess>();
    child->setObjectName(name);
    child->setProcessEnvironment(m_environment);
    child->setStandardInputFile(QProcess::nullDevice());
    child->setStandardErrorFile(path(name + QStringLiteral(".log")), QIODevice::Append);
    child->start(program, arguments);
    child->waitForStarted();
    m_children.push_back(std::move(child));
    return m_children.back().get();
}

bool Desktop::openScreen()
{
    QProcess *server =
        start(QStringLiteral("Xvfb"), QStringLiteral("Xvfb"),
              {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
               QStringLiteral("0"), QStringLiteral("%1x%2x24").arg(ScreenWidth).arg(ScreenHeight),
               QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    waitUntil(std::chrono::seconds(60), [server] {
        server->waitForReadyRead(50);
        return server->canReadLine() || server->state() == QProcess::NotRunning;
    });
    const QByteArray number = server->readLine().trimmed();
    if (number.isEmpty()) {
        return false;
    }
    setVariable(QStringLiteral("DISPLAY"), QLatin1Char(':') + QString::fromLatin1(number));
    // Its command runs once it manages windows: one that is opened before is lost now and then.
    const QString ready = path(QStringLiteral("openbox.ready"));
    start(QStringLiteral("openbox"), QStringLiteral("openbox"),
          {QStringLiteral("--startup"), QStringLiteral("touch ") + ready});
    return waitUntil(std::chrono::seconds(60), [&ready] { return QFileInfo::exists(ready); });
}

bool Desktop::openBus()
{
    QProcess *bus = start(QStringLiteral("dbus-daemon"), QStringLiteral("dbus-daemon"),
                          {QStringLiteral("--session"), QStringLiteral("--nofork"),
                           QStringLiteral("--print-address")});
    waitUntil(std::chrono::seconds(60), [bus] {
        bus->waitForReadyRead(50);
        return bus->canReadLine() || bus->state() == QProcess::NotRunning;
    });
    const QByteArray address = bus->readLine().trimmed();
    setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(address));
    return !address.isEmpty();
}

QByteArray Desktop::output(const QString &program, const QStringList &arguments, int seconds)
{
    QProcess child;
    child.setProcessEnvironment(m_environment);
    child.setStandardInputFile(QProcess::nullDevice());
    child.start(program, arguments);
    if (!child.waitForFinished(seconds * 1000)) {
        child.kill();
        child.waitForFinished(5000);
        return {};
    }
    return child.readAllStandardOutput();
}

Answer Desktop::tarvctl(const QStringList &arguments, int seconds)
{
    QProcess child;
    QProcessEnvironment environment = m_environment;
    environment.insert(QStringLiteral("TARV_MACHINE_READABLE"), QStringLiteral("1"));
    environment.insert(QStringLiteral("TARV_TARV_VIEWER"), QStringLiteral(TARV_BIN "/tarv"));
    child.setProcessEnvironment(environment);
    child.setStandardInputFile(QProcess::nullDevice());
    child.start(QStringLiteral(TARV_BIN "/tarvctl"), arguments);
    Answer answer;
    if (!child.waitForFinished(seconds * 1000)) {
        child.kill();
        child.waitForFinished(5000);
        answer.message = QStringLiteral("tarvctl did not end");
        return answer;
    }
    const QByteArray text = child.readAllStandardOutput();
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    answer.status = child.exitCode();
    answer.message = object.value(QLatin1String("message")).toString();
    answer.body = object.value(QLatin1String("body"));
    if (object.isEmpty()) {
        answer.message = QString::fromUtf8(text + child.readAllStandardError());
    }
    return answer;
}

QString Desktop::addVM(const QString &name, const QString &image, const QString &more)
{
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString directory = path(QStringLiteral("data/vms/")) + id;
    const QString disk = path(QStringLiteral("data/images/")) + id + QStringLiteral(".qcow2");
    output(QStringLiteral("qemu-img"),
           {QStringLiteral("convert"), QStringLiteral("-f"), QStringLiteral("raw"),
            QStringLiteral("-O"), QStringLiteral("qcow2"), image, disk});
    QDir().mkpath(directory);
    const QString record = QStringLiteral("name: %1\n"
                                          "uuid: %2\n"
                                          "cpu:\n  count: 1\n"
                                          "ram:\n  size: 67108864\n"
                                          "firmware: bios\n"
                                          "hard_drives:\n"
                                          "  - file: %3\n"
                                          "    controller: ablk\n"
                                          "network:\n"
                                          "  - mode: disconnected\n%4")
                               .arg(name, id, QFileInfo(disk).fileName(), more);
    write(directory + QStringLiteral("/config.yaml"), record.toUtf8());
    return id;
}

QProcess *Desktop::startTarv(const QStringList &arguments)
{
    return start(QStringLiteral("tarv"), QStringLiteral(TARV_BIN "/tarv"), arguments);
}

QString Desktop::window(const QString &pattern)
{
    const QByteArray found = output(QStringLiteral("xdotool"),
                                    {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                                     QStringLiteral("--name"), pattern});
    return QString::fromLatin1(found.trimmed().split('\n').last());
}

QString Desktop::activeWindow()
{
    return QString::fromLatin1(
        output(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}).trimmed());
}

QString Desktop::windowUnderPointer()
{
    const QByteArray place = output(
        QStringLiteral("xdotool"), {QStringLiteral("getmouselocation"), QStringLiteral("--shell")});
    return QString::fromLatin1(place.mid(place.indexOf("WINDOW=") + 7).trimmed());
}

QRect Desktop::geometry(const QString &window)
{
    const QByteArray text = output(QStringLiteral("xwininfo"), {QStringLiteral("-id"), window});
    int values[4] = {};
    const char *names[] = {"Absolute upper-left X:", "Absolute upper-left Y:", "Width:", "Height:"};
    for (const QByteArray &line : text.split('\n')) {
        for (int i = 0; i < 4; ++i) {
            if (line.trimmed().startsWith(names[i])) {
                values[i] = line.mid(line.lastIndexOf(':') + 1).trimmed().toInt();
            }
        }
    }
    return {values[0], values[1], values[2], values[3]};
}

QImage Desktop::picture(const QString &window)
{
    const QByteArray data = output(QStringLiteral("import"),
                                   {QStringLiteral("-window"), window, QStringLiteral("ppm:-")});
    return QImage::fromData(data, "PPM").convertToFormat(QImage::Format_RGB32);
}

bool Desktop::xdotool(const QStringList &arguments)
{
    QProcess child;
    child.setProcessEnvironment(m_environment);
    child.start(QStringLiteral("xdotool"), arguments);
    return child.waitForFinished(30000) && child.exitCode() == 0;
}

void Desktop::copy(const char *target, const QByteArray &bytes)
{
    write(path(QStringLiteral("copied")), bytes);
    start(QStringLiteral("xclip"), QStringLiteral("xclip"),
          {QStringLiteral("-quiet"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
           QStringLiteral("-t"), QLatin1String(target), path(QStringLiteral("copied"))});
}

QByteArray Desktop::paste(const char *target)
{
    return output(QStringLiteral("xclip"),
                  {QStringLiteral("-o"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                   QStringLiteral("-t"), QLatin1String(target)});
}

bool Desktop::doubleClickVM(const QString &listWindow, const QString &id)
{
    return doubleClickVM(listWindow, [&] { return status(id) == QLatin1String("running"); });
}

bool Desktop::doubleClickVM(const QString &listWindow, const std::function<bool()> &opened)
{
    const QRect frame = geometry(listWindow);
    for (int y = 94; y < frame.height(); y += 14) {
        xdotool({QStringLiteral("mousemove"), QString::number(frame.x() + frame.width() / 3),
                 QString::number(frame.y() + y), QStringLiteral("click"),
                 QStringLiteral("--repeat"), QStringLiteral("2"), QStringLiteral("--delay"),
                 QStringLiteral("60"), QStringLiteral("1")});
        if (waitUntil(std::chrono::milliseconds(1500), opened)) {
            return true;
        }
    }
    return false;
}

std::vector<pid_t> Desktop::processes(const QString &program) const
{
    std::vector<pid_t> found;
    const QByteArray mark = "HOME=" + m_home.path().toUtf8();
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        const QString base = QStringLiteral("/proc/") + entry;
        if (entry.toInt() > 0 &&
            QFileInfo(QFile::symLinkTarget(base + QStringLiteral("/exe"))).fileName() == program &&
            contents(base + QStringLiteral("/environ")).split('\0').contains(mark)) {
            found.push_back(entry.toInt());
        }
    }
    return found;
}

QString Desktop::status(const QString &id)
{
    return tarvctl({QStringLiteral("show"), id})
        .body.toObject()
        .value(QLatin1String("status"))
        .toString();
}

QString Desktop::log(const QString &name) const
{
    return QString::fromUtf8(contents(path(name + QStringLiteral(".log"))));
}
