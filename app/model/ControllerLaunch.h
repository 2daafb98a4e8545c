// What a run of the controller is started with, as data.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>
#include <sys/types.h>

// Nothing of this process is inherited but standard input.
struct ControllerLaunch
{
    QString program;
    QStringList arguments; // without the program's own name
    QMap<QByteArray, QByteArray> environment;
    int standardError = -1; // -1: /dev/null
};

// The launch of a controller command: the given environment, else this process's, with the three
// entries that the controller needs. The program is empty where the settings name none.
ControllerLaunch controllerLaunch(const QStringList &arguments,
                                  const std::optional<QMap<QString, QString>> &environment);

// What a command does, whatever its options: its first word, and whether it uses force, since that
// is another thing than to ask.
QString commandKind(const QStringList &arguments);

// Starts the child with its standard output on a descriptor. Its pid, or -1 with errno set.
pid_t spawnController(const ControllerLaunch &launch, int output);
