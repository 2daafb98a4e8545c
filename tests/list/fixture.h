// A private home, VM library, launch service and controller for the tests of the VM list.
#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// A service on a local socket, on a thread of its own. It hands what it read to the handler and
// sends what that answers; to an empty answer it says nothing and keeps the connection.
class FakeService
{
public:
    using Handler = std::function<std::string(const std::string &request)>;
    FakeService(const QString &path, Handler handler);
    ~FakeService();

    int connections() const { return m_connections; }

private:
    void serve();

    const QString m_path;
    const Handler m_handler;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    std::atomic<int> m_connections = 0;
    std::thread m_thread;
};

// Waits, with events processed, until a condition holds; false after a generous deadline.
bool waitFor(const std::function<bool()> &condition);

class ListTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    static QString randomId();
    // Writes the record of a VM with this configuration and returns its identifier.
    QString addVM(const QString &name, const QString &more = {});
    void writeVM(const QString &id, const char *file, const QByteArray &text);
    QString vmFile(const QString &id, const char *file) const;
    // The VM's supervisor: it says that it runs, or (silent) accepts and never answers.
    enum class Supervisor
    {
        answers,
        silent,
    };
    FakeService *supervise(const QString &id, Supervisor kind = Supervisor::answers);
    // The launch service, with one exit status for every VM. Without it there is none.
    void startLaunchService(int exitStatus = 0);

    // The argument vectors that the controller was run with, each joined by single spaces.
    QStringList recorded() const;
    bool waitForRecorded(int count) const;
    // How the controller ends; a hanging one ends by a signal.
    static void controllerEnds(int status, const char *answer = "");
    static void controllerHangs();

private:
    std::vector<std::unique_ptr<FakeService>> m_services;
};
