// What a window's menu does to the VM behind it, through the command-line controller; screenshots.
#include "app/display/Screenshot.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/model/TarvCTL.h"
#include "app/progress/LongOperationWindow.h"
#include "app/progress/LongRunningOperationWindowController.h"

#include <QCoreApplication>

// The sheet may go with the window, when the VM has stopped; the command runs to its end.
void TarvWindowController::controlVirtualMachine(const QString &command, const QString &description,
                                                 const QStringList &options)
{
    if (!m_display || attachedSheet(window()))
        return;
    const std::shared_ptr<LongRunningOperationWindowController> progress(
        LongRunningOperationWindowController::controller(), DeleteLater());
    progress->setTitle(description);
    auto *runner = new TarvCTL(QCoreApplication::instance());
    runner->execute(QStringList{command, m_display->uuid()} + options, std::nullopt,
                    [runner, sheet = QPointer<QDialog>(progress->sheet())](const auto &...) {
                        if (sheet)
                            sheet->done(SheetStop);
                        runner->deleteLater();
                    });
    beginSheet(progress->sheet(), [progress, running = QPointer<TarvCTL>(runner)](int response) {
        if (running && response == SheetCancel) {
            running->abort();
        } else if (running && response == SheetContinue) {
            running->detach();
            running->deleteLater();
        }
    });
}

void TarvWindowController::stopVirtualMachine(QObject *)
{
    controlVirtualMachine(QStringLiteral("stop"), tr("Stopping…"));
}

void TarvWindowController::forceStopVirtualMachine(QObject *)
{
    controlVirtualMachine(QStringLiteral("stop"), tr("Stopping…"), {QStringLiteral("--force")});
}

void TarvWindowController::suspendVirtualMachine(QObject *)
{
    controlVirtualMachine(QStringLiteral("suspend"), tr("Suspending…"));
}

void TarvWindowController::rebootVirtualMachine(QObject *)
{
    controlVirtualMachine(QStringLiteral("reboot"), tr("Rebooting…"));
}

void TarvWindowController::delete_(QObject *)
{
    if (!m_display || attachedSheet(window()))
        return;
    Alert alert(tr("Are you sure you want to delete the VM?"));
    alert.addButton(tr("Delete")).addButton(tr("Cancel"));
    alert.beginSheet(window(), [id = m_display->uuid()](int result) {
        if (result == AlertFirstButton)
            TarvCTL::executeCommand({QStringLiteral("delete"), QStringLiteral("--yes"), id});
    });
}

void TarvWindowController::takeScreenShot(QObject *)
{
    if (m_display)
        m_display->takeScreenshotWithCompletionHandler(
            [name = m_display->name()](const QImage &image) {
                Screenshot::save(image, Screenshot::path(name, QDateTime::currentDateTime()));
            });
}
