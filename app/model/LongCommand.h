// A command of the controller that a window shows the progress of.
#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class WindowController;

// Runs the controller with `arguments` and shows a sheet titled `description` on the window until
// the command has ended. The sheet's buttons abort the command or leave it to itself.
//
// The command belongs to the application and not to the window: a window that closes takes its
// sheet along and ends no command. A failure is shown by the runner. `succeeded` is called on the
// main thread after an end with status 0, and must not rely on the window being there still.
void runLongCommand(WindowController &window, const QStringList &arguments,
                    const QString &description, std::function<void()> succeeded = {});
