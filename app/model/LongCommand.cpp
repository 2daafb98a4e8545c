#include "app/model/LongCommand.h"

#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "app/progress/LongOperationWindow.h"
#include "app/progress/LongRunningOperationWindowController.h"

#include <QPointer>

#include <memory>
#include <utility>

void runLongCommand(WindowController &window, LongCommand command)
{
    // Shared with the sheet's handler, which goes when the sheet has ended or with the window.
    const std::shared_ptr<LongRunningOperationWindowController> operation(
        LongRunningOperationWindowController::controller(), DeleteLater());
    operation->setTitle(command.description);

    const QPointer<TarvCTL> running(TarvCTL::executeCommand(
        command.arguments, std::nullopt,
        [sheet = QPointer<QDialog>(operation->sheet()),
         succeeded = std::move(command.succeeded)](const QJsonValue &, const auto &error) {
            if (sheet)
                sheet->done(SHEET_STOP);
            if (!error && succeeded)
                succeeded();
        }));
    running->setFailurePresenter(std::move(command.failed));
    window.beginSheet(operation->sheet(),
                      [operation, running, ended = std::move(command.sheetDidEnd)](int response) {
                          if (running && response == SHEET_CANCEL)
                              running->abort();
                          else if (running && response == SHEET_CONTINUE)
                              running->detach();
                          if (ended)
                              ended();
                      });
}
