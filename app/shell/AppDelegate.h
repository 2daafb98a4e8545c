// The spine of the running application: its windows, the agreement before them, what notifications
// and requests from outside do to them, and whether it may quit.
#pragma once

#include "app/kit/WindowController.h"
#include "app/shell/AppParts.h"
#include "app/shell/DisplayWindows.h"
#include "app/shell/Termination.h"

#include <QAction>
#include <QList>
#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>

struct Notification;
class ServiceNotifications;

class AppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(AppParts parts, QObject *parent = nullptr);
    ~AppDelegate() override;

    // Takes requests of a second start (may be null).
    void applicationWillFinishLaunching(SingleInstance *instance);
    // The agreement, if it is due, and everything that is listened to.
    void applicationDidFinishLaunching();
    // The first windows: what is to be opened, else the VM list.
    void launch(const QList<QUrl> &urls);
    // The user asks for the application: the agreement if it is due, else a window.
    void activate();
    void open(const QList<QUrl> &urls);

    bool applicationShouldTerminate();
    bool applicationShouldTerminateAfterLastWindowClosed() const;
    // Ends the application, or lets it end once nothing is under way any more.
    void lastWindowDidClose();
    bool applicationShouldOpenUntitledFile() const;
    bool applicationOpenUntitledFile();
    bool applicationSupportsSecureRestorableState() const { return true; }
    // Opens "path" or "path:index". The answer, whether a window opened, comes later.
    void applicationOpenFile(const QString &name, std::function<void(bool)> answer = {});
    // Quits, if applicationShouldTerminate agrees; whether it does. The VMs in the application's
    // care are told to end first, and are not waited for longer than a while.
    bool requestTermination();
    // The same without asking. The second time it waits for nothing.
    void terminateNow();

    Q_INVOKABLE void showWelcomeWindow(QObject *sender);
    Q_INVOKABLE void newDocument(QObject *sender);
    Q_INVOKABLE void openGettingStartedURL(QObject *sender);
    Q_INVOKABLE void orderFrontStandardAboutPanel(QObject *sender);
    Q_INVOKABLE void terminate(QObject *sender);
    Q_INVOKABLE bool validateMenuItem(QAction *item);

    void virtualMachineDidStart(const Notification &notification);
    void virtualMachineDidStop(const Notification &notification);
    void getUrl(const QString &url);
    // Opens one display of a VM, or brings its window forward. A failure is silent; `done` tells.
    void viewDisplay(const QString &path, int index, std::function<void(bool)> done = {});

    size_t displayCount() const { return m_displays.count(); }
    WindowController *welcomeController() const { return m_welcome.get(); }
    WindowController *creationController() const { return m_creation.get(); }
    WindowController *eulaController() const { return m_eula.get(); }

private:
    using Owned = std::unique_ptr<WindowController, DeleteLater>;

    AppParts m_parts;
    DisplayWindows m_displays;
    Termination m_termination;
    Owned m_welcome;
    Owned m_creation;
    Owned m_eula;
    QPointer<SingleInstance> m_instance;
    std::unique_ptr<ServiceNotifications> m_services;

    void windowWillClose(const QWidget *window);
    void showIfNothingIsOpen();
};
