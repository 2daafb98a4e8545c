// A private home, settings, log, session bus and recording controller for tests of the shell.
#pragma once

#include "tests/kit/PrivateBus.h"
#include "tests/kit/application.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <memory>

// The log of the process goes to a file of its own, the settings name the recording controller.
class ShellTest : public ApplicationTest
{
protected:
    // With these settings of the section [tarv].
    explicit ShellTest(const QString &settings = {});

    // Replaces the settings of the section [tarv]; tarvctl_executable is added.
    static void setSettings(const QString &lines,
                            const QString &controller = path(QStringLiteral("tarvctl")));
    // What the controller does when it runs; see controller_recorder.cpp.
    static void setController(const QString &mode);
    // The arguments and environment of the last run; empty while there was none.
    static QStringList recordedArguments();
    static QStringList recordedEnvironment();
    static QString log();
    // A path in the private home.
    static QString path(const QString &name);
    static void write(const QString &name, const QByteArray &text);
};
