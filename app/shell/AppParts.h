// What the application delegate is built upon.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class TarvDisplay;
class WindowController;

// Tests hand in others. Controllers belong to the delegate.
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
    std::function<void()> exit; // ends the event loop
};

// The real parts of the application, put together.
AppParts applicationParts();
