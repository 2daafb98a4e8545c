#include "app/display/MachineControl.h"

#include "app/display/OpenScreen.h"
#include "app/display/Screenshot.h"
#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "app/model/ControllerRun.h"
#include "app/model/ForceStopOffer.h"
#include "app/model/LongCommand.h"

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
    if (!canAct())
        return;
    const QString vmid = m_screen.display()->uuid();
    const QStringList arguments = QStringList{command, vmid} + options;
    if (ControllerRun::isUnderWay(commandKind(arguments), vmid))
        return;
    LongCommand run{arguments, description};
    if (command == QLatin1String("stop") && options.isEmpty())
        run.failed = forceStopOffer(m_window, [vmid] {
            TarvCTL::executeCommand({QStringLiteral("stop"), vmid, QStringLiteral("--force")});
        });
    runLongCommand(*m_window, std::move(run));
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
        const QString kind = QStringLiteral("delete");
        if (result == ALERT_FIRST_BUTTON && !ControllerRun::isUnderWay(kind, id))
            TarvCTL::executeCommand({kind, QStringLiteral("--yes"), id});
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
