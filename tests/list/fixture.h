// A private VM library with its services and an open list, for the tests of the VM list.
#pragma once

#include "app/list/WelcomeWindowController.h"
#include "tests/list/fake_service.h"
#include "tests/shell/shell_fixture.h"

#include <QSignalSpy>

#include <memory>
#include <vector>

class ListTest : public ShellTest
{
protected:
    ListTest();
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
    void supervise(const QString &id, Supervisor kind = Supervisor::answers);
    // The launch service, with one exit status for every VM. Without it there is none.
    void startLaunchService(int exitStatus = 0);

    // The argument vectors that the controller was run with, each joined by single spaces.
    static QStringList recorded();
    static bool waitForRecorded(int count);

    // Makes the list's window and waits until the list has been read.
    void open();
    int row(const QString &id) const;
    QString shown(const QString &id) const; // its status
    void select(const QStringList &ids);

    std::unique_ptr<WelcomeWindowController> m_controller;
    std::unique_ptr<QSignalSpy> m_reloads;

private:
    std::vector<std::unique_ptr<FakeService>> m_services;
};

// A shown list of three VMs: "one" runs, "three" is suspended, the one in between is stopped.
class ListOfThree : public ListTest
{
protected:
    explicit ListOfThree(const QString &stoppedName = QStringLiteral("two"));
    void SetUp() override;

    QString m_running, m_stopped, m_suspended;
};
