// A private home, VM library, launch service and controller for the tests of the VM list.
#pragma once

#include "tests/list/fake_service.h"

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

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
    // How the controller ends.
    static void controllerEnds(int status, const char *answer = "");

private:
    std::vector<std::unique_ptr<FakeService>> m_services;
};
