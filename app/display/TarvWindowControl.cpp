// What a window's menu does to the VM behind it, through the command-line controller; screenshots.
#include "app/display/Screenshot.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/model/LongCommand.h"
#include "app/model/TarvCTL.h"

void TarvWindowController::controlVirtualMachineUsingCommand(const QString &command,
                                                             const QString &description,
                                                             const QStringList &options)
{
    if (m_display && !attachedSheet(window()))
        runLongCommand(*this, QStringList{command, m_display->uuid()} + options, description);
}

void TarvWindowController::stopVirtualMachine(QObject *)
{
    controlVirtualMachineUsingCommand(QStringLiteral("stop"), tr("Stopping…"));
}

void TarvWindowController::forceStopVirtualMachine(QObject *)
{
    controlVirtualMachineUsingCommand(QStringLiteral("stop"), tr("Stopping…"),
                                      {QStringLiteral("--force")});
}

void TarvWindowController::suspendVirtualMachine(QObject *)
{
    controlVirtualMachineUsingCommand(QStringLiteral("suspend"), tr("Suspending…"));
}

void TarvWindowController::rebootVirtualMachine(QObject *)
{
    controlVirtualMachineUsingCommand(QStringLiteral("reboot"), tr("Rebooting…"));
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
