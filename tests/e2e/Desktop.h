// A private desktop for end-to-end tests: a virtual screen with a window manager, a session bus and
// a home, in which the real programs run. Ends all that it started.
#pragma once

#include <QImage>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRect>
#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include <sys/types.h>

// The controller's answer to one command.
struct Answer
{
    int status = -1; // exit status
    QString message;
    QJsonValue body;
};

class Desktop
{
public:
    // Starts the screen, its window manager and the bus; ok() tells whether they came up.
    Desktop();
    ~Desktop();
    Desktop(const Desktop &) = delete;
    Desktop &operator=(const Desktop &) = delete;

    bool ok() const { return m_problem.isEmpty(); }
    QString problem() const { return m_problem; }

    // A path in the private home.
    QString path(const QString &name) const { return m_home.filePath(name); }
    // Adds a line to the settings; before the first program runs.
    void addSetting(const QString &key, const QString &value);
    // Sets a variable for all programs started from now on.
    void setVariable(const QString &name, const QString &value);

    // Runs the controller to its end and takes its machine-readable answer.
    Answer tarvctl(const QStringList &arguments);
    // Makes a VM of a raw disk image in the library, as a hand-written record; its identifier.
    QString addVM(const QString &name, const QString &image, const QString &more = QString());
    // Starts the application.
    QProcess *startTarv(const QStringList &arguments = {});

    // The visible window whose title matches, or empty.
    QString window(const QString &pattern);
    QString activeWindow();
    QRect geometry(const QString &window);
    // The whole screen.
    static QRect screen();
    // What a window shows, 32-bit RGB; a null image when it is gone.
    QImage picture(const QString &window);
    // Mouse and keyboard, through the X server.
    bool xdotool(const QStringList &arguments);
    // A user's program copies bytes as `target` (UTF8_STRING, image/png) and keeps them to give;
    // what one that pastes gets, nothing after an error.
    void copy(const char *target, const QByteArray &bytes);
    QByteArray paste(const char *target);
    // Opens the first VM of the list window with a real double-click; false when none began to run.
    bool doubleClickVM(const QString &listWindow, const QString &id);
    // The same until a condition holds: of one that runs already.
    bool doubleClickVM(const QString &listWindow, const std::function<bool()> &opened);

    // Starts a program that ends with the desktop; its words go to NAME.log.
    QProcess *start(const QString &name, const QString &program, const QStringList &arguments);
    // Processes of this desktop by program name ("tarvvm", "qemu-system-x86_64", …).
    std::vector<pid_t> processes(const QString &program) const;
    // A VM's status in the words of the controller.
    QString status(const QString &id);
    // The log lines written by the application so far.
    QString log(const QString &name) const;

private:
    bool openScreen();
    bool openBus();
    // Starts a program and waits for the first line that it writes; empty when it ended instead.
    QString firstWords(const QString &program, const QStringList &arguments);
    // Runs a program to its end; false when it did not end in time.
    bool run(QProcess &child, const QString &program, const QStringList &arguments,
             int seconds = 30) const;
    QByteArray output(const QString &program, const QStringList &arguments);
    void endProcesses(const QString &program, int signal);

    QTemporaryDir m_home;
    QString m_problem;
    QString m_settings;
    QProcessEnvironment m_environment;
    std::vector<std::unique_ptr<QProcess>> m_children;
};

// Waits until a condition holds, letting events run; false when it does not within the time.
bool waitUntil(std::chrono::milliseconds limit, const std::function<bool()> &condition);
// Memory of a process in use (resident, shared pages included), in bytes; 0 when it is gone.
qint64 residentBytes(pid_t pid);
// Whether a process is there and not a zombie.
bool processRuns(pid_t pid);
