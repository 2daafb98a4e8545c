// A command of the controller that a window shows the progress of.
#pragma once

#include "app/model/TarvCTL.h"

#include <QString>
#include <QStringList>

#include <functional>

class WindowController;

struct LongCommand
{
    QStringList arguments; // of the controller
    QString description;   // title of the sheet, localised
    // Each is called on the main thread and must not rely on the window being there still.
    std::function<void()> succeeded = {};   // after an end with status 0
    TarvCTL::FailurePresenter failed = {};  // see there
    std::function<void()> sheetDidEnd = {}; // not when the sheet went with its window
};

// Runs the controller and shows a sheet on the window until the command has ended. The sheet's
// buttons abort the command or leave it to itself.
//
// The command belongs to the application and not to the window: a window that closes takes its
// sheet along and ends no command.
void runLongCommand(WindowController &window, LongCommand command);
