#include "tests/e2e/Desktop.h"

#include "tests/support/scratch.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUuid>

#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int ScreenWidth = 2048;
constexpr int ScreenHeight = 1280;

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

bool waitUntil(std::chrono::milliseconds limit, const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > limit.count())
            return false;
        QCoreApplication::processEvents();
        usleep(20000);
    }
    return true;
}

qint64 residentBytes(pid_t pid)
{
    const QList<QByteArray> fields = contents(u"/proc/%1/statm"_s.arg(pid)).split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

bool processRuns(pid_t pid)
{
    const QByteArray stat = contents(u"/proc/%1/stat"_s.arg(pid));
    const qsizetype end = stat.lastIndexOf(')');
    return end >= 0 && stat.mid(end + 2, 1) != "Z";
}

Desktop::Desktop() : m_environment(QProcessEnvironment::systemEnvironment())
{
    for (const QString &name : m_environment.keys())
        if (name.startsWith("TARV_"_L1) || name.startsWith("XDG_"_L1) ||
            name.startsWith("QT_"_L1) || name.startsWith("WAYLAND"_L1) || name == "LANGUAGE"_L1)
            m_environment.remove(name);
    for (const char *directory : {"runtime", "data", "data/vms", "data/images", "support"})
        QDir().mkpath(path(QLatin1String(directory)));
    QFile::setPermissions(path(u"runtime"_s),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setVariable(u"HOME"_s, m_home.path());
    setVariable(u"XDG_CONFIG_HOME"_s, path(u"config"_s));
    setVariable(u"XDG_RUNTIME_DIR"_s, path(u"runtime"_s));
    setVariable(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    setVariable(u"LC_ALL"_s, u"C.UTF-8"_s);
    setVariable(u"TARV_MACHINE_READABLE"_s, u"1"_s);
    setVariable(u"TARV_TARV_VIEWER"_s, QStringLiteral(TARV_BIN "/tarv"));
    setVariable(u"TARV_SUPPORT_DIR"_s, path(u"support"_s));
    setVariable(u"TARV_CONFIG_PATH"_s, path(u"settings.ini"_s));
    write_file(path(u"support/.TarvEulaAccepted"_s).toStdString(), {});
    m_settings = QString::fromUtf8(
        output(QStringLiteral(WRITE_SETTINGS), {QStringLiteral(TARV_BIN), path(u"data"_s)}));
    addSetting(u"engine_accel"_s, u"tcg"_s);
    addSetting(u"stop_wait"_s, u"1"_s);
    if (m_settings.isEmpty())
        m_problem = u"the settings can't be made"_s;
    else if (!openScreen())
        m_problem = u"no virtual screen: "_s + log(u"Xvfb"_s);
    else if (!openBus())
        m_problem = u"no session bus: "_s + log(u"dbus-daemon"_s);
}

Desktop::~Desktop()
{
    // The application first, so that it does not see the rest go; then VMs, by their supervisors.
    while (!m_children.empty() && m_children.back()->objectName() == "tarv"_L1) {
        m_children.back()->kill();
        m_children.back()->waitForFinished(5000);
        m_children.pop_back();
    }
    endProcesses(u"tarvvm"_s, SIGINT);
    endProcesses(u"vlaunchd"_s, SIGTERM);
    for (const char *program : {"tarv", "tarvctl", "tarvvm", "vlaunchd", "qemu-system-x86_64"})
        endProcesses(QLatin1String(program), SIGKILL);
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
    m_settings += key + u" = "_s + value + u'\n';
    write_file(path(u"settings.ini"_s).toStdString(), m_settings.toStdString());
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
    child->setStandardErrorFile(path(name + u".log"_s), QIODevice::Append);
    child->start(program, arguments);
    child->waitForStarted();
    m_children.push_back(std::move(child));
    return m_children.back().get();
}

QString Desktop::firstWords(const QString &program, const QStringList &arguments)
{
    QProcess *child = start(program, program, arguments);
    waitUntil(std::chrono::seconds(60), [child] {
        child->waitForReadyRead(50);
        return child->canReadLine() || child->state() == QProcess::NotRunning;
    });
    return QString::fromLatin1(child->readLine().trimmed());
}

bool Desktop::openScreen()
{
    const QString number = firstWords(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s,
                                                  u"%1x%2x24"_s.arg(ScreenWidth).arg(ScreenHeight),
                                                  u"-nolisten"_s, u"tcp"_s});
    if (number.isEmpty())
        return false;
    setVariable(u"DISPLAY"_s, u':' + number);
    // Its command runs once it manages windows: one that is opened before is lost now and then.
    const QString ready = path(u"openbox.ready"_s);
    start(u"openbox"_s, u"openbox"_s, {u"--startup"_s, u"touch "_s + ready});
    return waitUntil(std::chrono::seconds(60), [&ready] { return QFileInfo::exists(ready); });
}

bool Desktop::openBus()
{
    const QString address =
        firstWords(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
    setVariable(u"DBUS_SESSION_BUS_ADDRESS"_s, address);
    return !address.isEmpty();
}

bool Desktop::run(QProcess &child, const QString &program, const QStringList &arguments,
                  int seconds) const
{
    child.setProcessEnvironment(m_environment);
    child.setStandardInputFile(QProcess::nullDevice());
    child.start(program, arguments);
    const bool ended = child.waitForFinished(seconds * 1000);
    child.kill();
    child.waitForFinished(5000);
    return ended;
}

QByteArray Desktop::output(const QString &program, const QStringList &arguments)
{
    QProcess child;
    return run(child, program, arguments) ? child.readAllStandardOutput() : QByteArray();
}

Answer Desktop::tarvctl(const QStringList &arguments)
{
    QProcess child;
    Answer answer;
    if (!run(child, QStringLiteral(TARV_BIN "/tarvctl"), arguments, 90)) {
        answer.message = u"tarvctl did not end"_s;
        return answer;
    }
    const QByteArray text = child.readAllStandardOutput();
    const QJsonObject object = QJsonDocument::fromJson(text).object();
    answer.status = child.exitCode();
    answer.message = object.value("message"_L1).toString();
    answer.body = object.value("body"_L1);
    if (object.isEmpty())
        answer.message = QString::fromUtf8(text + child.readAllStandardError());
    return answer;
}

QString Desktop::addVM(const QString &name, const QString &image, const QString &more)
{
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    const QString directory = path(u"data/vms/"_s) + id;
    const QString disk = path(u"data/images/"_s) + id + u".qcow2"_s;
    output(u"qemu-img"_s, {u"convert"_s, u"-f"_s, u"raw"_s, u"-O"_s, u"qcow2"_s, image, disk});
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
    write_file((directory + u"/config.yaml"_s).toStdString(), record.toStdString());
    return id;
}

QProcess *Desktop::startTarv(const QStringList &arguments)
{
    return start(u"tarv"_s, QStringLiteral(TARV_BIN "/tarv"), arguments);
}

QString Desktop::window(const QString &pattern)
{
    const QByteArray found =
        output(u"xdotool"_s, {u"search"_s, u"--onlyvisible"_s, u"--name"_s, pattern});
    return QString::fromLatin1(found.trimmed().split('\n').last());
}

QString Desktop::activeWindow()
{
    return QString::fromLatin1(output(u"xdotool"_s, {u"getactivewindow"_s}).trimmed());
}

QRect Desktop::screen()
{
    return {0, 0, ScreenWidth, ScreenHeight};
}

QRect Desktop::geometry(const QString &window)
{
    const QByteArray text = output(u"xwininfo"_s, {u"-id"_s, window});
    int values[4] = {};
    const char *names[] = {"Absolute upper-left X:", "Absolute upper-left Y:", "Width:", "Height:"};
    for (const QByteArray &line : text.split('\n')) {
        for (int i = 0; i < 4; ++i)
            if (line.trimmed().startsWith(names[i]))
                values[i] = line.mid(line.lastIndexOf(':') + 1).trimmed().toInt();
    }
    return {values[0], values[1], values[2], values[3]};
}

QImage Desktop::picture(const QString &window)
{
    const QByteArray data = output(u"import"_s, {u"-window"_s, window, u"ppm:-"_s});
    return QImage::fromData(data, "PPM").convertToFormat(QImage::Format_RGB32);
}

bool Desktop::xdotool(const QStringList &arguments)
{
    QProcess child;
    return run(child, u"xdotool"_s, arguments) && child.exitCode() == 0;
}

void Desktop::copy(const char *target, const QByteArray &bytes)
{
    write_file(path(u"copied"_s).toStdString(), bytes.toStdString());
    start(u"xclip"_s, u"xclip"_s,
          {u"-quiet"_s, u"-selection"_s, u"clipboard"_s, u"-t"_s, QLatin1String(target),
           path(u"copied"_s)});
}

QByteArray Desktop::paste(const char *target)
{
    return output(u"xclip"_s,
                  {u"-o"_s, u"-selection"_s, u"clipboard"_s, u"-t"_s, QLatin1String(target)});
}

bool Desktop::doubleClickVM(const QString &listWindow, const QString &id)
{
    return doubleClickVM(listWindow, [&] { return status(id) == "running"_L1; });
}

bool Desktop::doubleClickVM(const QString &listWindow, const std::function<bool()> &opened)
{
    const QRect frame = geometry(listWindow);
    for (int y = 94; y < frame.height(); y += 14) {
        xdotool({u"mousemove"_s, QString::number(frame.x() + frame.width() / 3),
                 QString::number(frame.y() + y), u"click"_s, u"--repeat"_s, u"2"_s, u"--delay"_s,
                 u"60"_s, u"1"_s});
        if (waitUntil(std::chrono::milliseconds(1500), opened))
            return true;
    }
    return false;
}

std::vector<pid_t> Desktop::processes(const QString &program) const
{
    std::vector<pid_t> found;
    const QByteArray mark = "HOME=" + m_home.path().toUtf8();
    for (const QString &entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        const QString base = u"/proc/"_s + entry;
        if (entry.toInt() > 0 &&
            QFileInfo(QFile::symLinkTarget(base + u"/exe"_s)).fileName() == program &&
            contents(base + u"/environ"_s).split('\0').contains(mark))
            found.push_back(entry.toInt());
    }
    return found;
}

QString Desktop::status(const QString &id)
{
    return tarvctl({u"show"_s, id}).body.toObject().value("status"_L1).toString();
}

QString Desktop::log(const QString &name) const
{
    return QString::fromUtf8(contents(path(name + u".log"_s)));
}
