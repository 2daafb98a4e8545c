#include "app/model/LongCommand.h"

#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "app/model/TarvCTL.h"
#include "app/progress/LongOperationWindow.h"
#include "app/progress/LongRunningOperationWindowController.h"

#include <QCoreApplication>
#include <QPointer>

#include <memory>
#include <utility>

void runLongCommand(WindowController &window, const QStringList &arguments,
                    const QString &description, std::function<void()> succeeded)
{
    // Shared with the sheet's handler, which goes when the sheet has ended or with the window.
    const std::shared_ptr<LongRunningOperationWindowController> operation(
        LongRunningOperationWindowController::controller(), DeleteLater());
    operation->setTitle(description);

    auto *runner = new TarvCTL(QCoreApplication::instance());
    runner->execute(arguments, std::nullopt,
                    [runner, sheet = QPointer<QDialog>(operation->sheet()),
                     succeeded = std::move(succeeded)](const QJsonValue &, const auto &error) {
                        if (sheet)
                            sheet->done(SHEET_STOP);
                        if (!error && succeeded)
                            succeeded();
                        runner->deleteLater();
                    });
    window.beginSheet(operation->sheet(), [operation, running = QPointer(runner)](int response) {
        if (running && response == SHEET_CANCEL) {
            running->abort();
        } else if (running && response == SHEET_CONTINUE) {
            running->detach();
            running->deleteLater();
        }
    });
}
