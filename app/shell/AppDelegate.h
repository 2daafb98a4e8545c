// The spine of the running application: its windows, the agreement before them, what notifications
// and requests from outside do to them, and whether it may quit.
#pragma once

#include "app/kit/WindowController.h"
#include "tarvhv/display/TarvDisplay.h"

#include <QAction>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <functional>
#include <memory>
#include <vector>

struct Notification;
class ServiceNotifications;
class SingleInstance;

// What the delegate is built upon; tests hand in others. Controllers belong to the delegate.
struct AppParts
{
    std::function<bool()> isEulaAccepted;
    std::function<WindowController *()> makeEulaController;
    std::function<WindowController *()> makeWelcomeController;
    std::function<WindowController *()> makeCreationController; // none: no new VMs from here
    std::function<WindowController *(std::unique_ptr<TarvDisplay>)> makeDisplayController;
    // As TarvDisplayCreateAsync.
    std::function<void(const QString &path, unsigned index, QObject *context,
                       std::function<void(std::unique_ptr<TarvDisplay>, int error)> handler)>
        createDisplay;
    std::function<int()> hostType; // 1 or 2
    std::function<unsigned()> runningVMs;
    std::function<void()> endVMs;                       // tells these to end
    std::function<void(const QString &id)> removeState; // drops a VM's suspended state
    std::function<void(const QString &id, int options)> startVM;
    std::function<void(const QString &id, int status)> setVMStatus; // of its last end
    std::function<void(const QString &path)> setAddonsImage;
    std::function<bool(const QUrl &url)> openInBrowser;
};

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

    size_t displayCount() const { return m_displays.size(); }
    WindowController *welcomeController() const { return m_welcome.get(); }
    WindowController *creationController() const { return m_creation.get(); }
    WindowController *eulaController() const { return m_eula.get(); }

private:
    using Owned = std::unique_ptr<WindowController, DeleteLater>;
    // An open window, with what its display said of itself when it was opened.
    struct Display
    {
        Owned controller;
        QString path;
        QString uuid;
        int index;
    };
    enum class Termination
    {
        none,
        asked, // the user has yet to answer
        agreed // VMs are ending
    };
    struct Request
    {
        QString path;
        int index;
        std::vector<std::function<void(bool)>> waiting;
    };

    AppParts m_parts;
    std::vector<Display> m_displays;
    std::vector<Request> m_requests; // displays that are being opened
    Owned m_welcome;
    Owned m_creation;
    Owned m_eula;
    std::unique_ptr<ServiceNotifications> m_services;
    QPointer<SingleInstance> m_instance;
    Termination m_termination = Termination::none;

    void windowWillClose(const QWidget *window);
    void displayWindowWillClose(const QWidget *window);
    void shareDisplay(const QString &path, int index, std::function<void(bool)> done);
    void createDisplay(const QString &path, int index, std::function<void(bool)> done);
    void displayCreated(const QString &path, int index, std::unique_ptr<TarvDisplay> display);
    void showDisplay(const QString &path, int index, std::unique_ptr<TarvDisplay> display);
    void showIfNothingIsOpen();
};
