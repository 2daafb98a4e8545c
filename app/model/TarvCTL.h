// One run of the command-line controller, which makes every change to a VM.
#pragma once

#include "app/model/typedValues.h"

#include <QJsonValue>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <utility>

class ControllerRun;

// Why a run failed: domain "TarvCTLError", the controller's exit status as code (128 + the signal
// that killed it), and the controller's message. A controller that can't be started has the
// domain "POSIX" and an errno as code.
struct TarvError
{
    QString domain;
    int64_t code = 0;
    QString description;
};

// Made, used and destroyed on the main thread. A runner that is destroyed while its command runs
// kills it; one made by a class operation lives until its command has ended, whatever window asked
// for it, and is not destroyed when the application ends: its command then runs on by itself.
class TarvCTL : public QObject
{
    Q_OBJECT

public:
    // The environment of a command; given one, nothing of this process's own is inherited.
    using Environment = QMap<QString, QString>;
    // Called on the main thread: the answer's "body" (undefined when there is none), or an error.
    using CompletionHandler =
        std::function<void(const QJsonValue &body, const std::optional<TarvError> &error)>;

    explicit TarvCTL(QObject *parent = nullptr);
    ~TarvCTL() override;

    // Runs the controller with arguments, of which the first is its command. Returns at once. When
    // the command fails, an alert is shown, and the handler follows when it is dismissed.
    void execute(const QStringList &arguments,
                 const std::optional<Environment> &environment = std::nullopt,
                 const CompletionHandler &handler = {});

    // Asks the command to end (SIGTERM), and sends SIGABRT if it still runs 5 seconds later.
    void abort();
    // Lets the command run on by itself: neither log, alert nor handler follows its end.
    void detach();
    bool isRunning() const;
    // 0 while it runs; 128 + the signal that killed it.
    int32_t exitStatus() const;
    // From the launch until the end has been handled, else -1.
    int32_t processIdentifier() const { return m_processIdentifier; }

    // A silent runner only logs a failure: no alert, and the handler is not called.
    bool silent() const { return m_silent; }
    void setSilent(bool silent) { m_silent = silent; }
    // Where the command's standard error goes; -1 for the log. Not closed here.
    int standardError() const { return m_standardError; }
    void setStandardError(int fd) { m_standardError = fd; }

    // Who shows a failure instead of the alert; false leaves it to the alert.
    using FailurePresenter = std::function<bool(const TarvError &error)>;
    void setFailurePresenter(FailurePresenter presenter) { m_present = std::move(presenter); }

    // The same with a runner that lives until its command has ended or was detached.
    static TarvCTL *executeCommand(const QStringList &arguments,
                                   const std::optional<Environment> &environment = std::nullopt,
                                   const CompletionHandler &handler = {});

    // Whether the agreement has been accepted for this computer.
    static bool isEulaAccepted();

private:
    std::shared_ptr<ControllerRun> m_run;
    int32_t m_processIdentifier = -1;
    bool m_silent = false;
    bool m_ownsItself = false;
    int m_standardError = -1;
    FailurePresenter m_present;

    void ended(const QJsonObject &answer, const QString &command, const CompletionHandler &handler);
    void failToLaunch(const QString &reason, int error, const CompletionHandler &handler);
    void fail(const TarvError &error, const CompletionHandler &handler);
    bool detachRun();
    void release();
};
