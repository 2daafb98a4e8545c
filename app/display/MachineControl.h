// What a display window's menu does to the VM behind it.
#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>

class OpenScreen;
class WindowController;

// Runs the command-line controller. The sheets stand on the window and may go with it, when the VM
// has stopped; the commands run to their end.
class MachineControl
{
    Q_DECLARE_TR_FUNCTIONS(MachineControl)

public:
    MachineControl(WindowController *window, const OpenScreen &screen);

    void stop();
    void forceStop();
    void suspend();
    void reboot();
    // Deletes the VM, if the user confirms it.
    void deleteMachine();
    // Saves a picture of the guest's screen on the user's desktop.
    void takeScreenShot();

private:
    void controlVirtualMachineUsingCommand(const QString &command, const QString &description,
                                           const QStringList &options = {});
    // Neither without a screen nor under another sheet.
    bool canAct() const;

    WindowController *m_window;
    const OpenScreen &m_screen;
};
