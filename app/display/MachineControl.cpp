#include "app/display/MachineControl.h"

#include "app/display/OpenScreen.h"
#include "app/display/Screenshot.h"
#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "app/model/LongCommand.h"
#include "app/model/TarvCTL.h"

MachineControl::MachineControl(WindowController *window, const OpenScreen &screen)
    : m_window(window), m_screen(screen)
{
}

bool MachineControl::canAct() const
{
    return m_screen.display() && !WindowController::attachedSheet(m_window->window());
}

void MachineControl::controlVirtualMachineUsingCommand(const QString &command,
                                                       const QString &description,
                                                       const QStringList &options)
{
    if (canAct())
        runLongCommand(*m_window, QStringList{command, m_screen.display()->uuid()} + options,
                       description);
}

void MachineControl::stop()
{
    controlVirtualMachineUsingCommand(QStringLiteral("stop"), tr("Stopping…"));
}

void MachineControl::forceStop()
{
    controlVirtualMachineUsingCommand(QStringLiteral("stop"), tr("Stopping…"),
                                      {QStringLiteral("--force")});
}

void MachineControl::suspend()
{
    controlVirtualMachineUsingCommand(QStringLiteral("suspend"), tr("Suspending…"));
}

void MachineControl::reboot()
{
    controlVirtualMachineUsingCommand(QStringLiteral("reboot"), tr("Rebooting…"));
}

void MachineControl::deleteMachine()
{
    if (!canAct())
        return;
    Alert alert(tr("Are you sure you want to delete the VM?"));
    alert.addButton(tr("Delete")).addButton(tr("Cancel"));
    alert.beginSheet(m_window->window(), [id = m_screen.display()->uuid()](int result) {
        if (result == ALERT_FIRST_BUTTON)
            TarvCTL::executeCommand({QStringLiteral("delete"), QStringLiteral("--yes"), id});
    });
}

void MachineControl::takeScreenShot()
{
    TarvDisplay *display = m_screen.display();
    if (!display)
        return;
    display->takeScreenshotWithCompletionHandler([name = display->name()](const QImage &image) {
        Screenshot::save(image, Screenshot::path(name, QDateTime::currentDateTime()));
    });
}
