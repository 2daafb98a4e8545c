#include "app/shell/AppDelegate.h"

#include "app/kit/Alert.h"
#include "app/kit/AppLog.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/kit/SheetCodes.h"
#include "app/model/TarvVM.h"
#include "app/shell/Arguments.h"
#include "app/shell/ServiceNotifications.h"
#include "app/shell/SingleInstance.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/tarvhv.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <chrono>
#include <utility>

#include <unistd.h>

namespace {

const QString gettingStartedIntel =
    QStringLiteral("https://quelda.com/tarv/getting-started/x86-64");
const QString gettingStartedArm = QStringLiteral("https://quelda.com/tarv/getting-started/arm64");

// Longer than a supervisor tries to end its VM; what is left then ends with this process.
constexpr std::chrono::seconds endWait{12};

// The identifier that a notification is about: a UUID or a text; null for anything else.
QString identifierOf(const QVariant &object)
{
    if (object.userType() == QMetaType::QUuid)
        return object.toUuid().toString(QUuid::WithoutBraces);
    return object.userType() == QMetaType::QString ? object.toString() : QString();
}

bool sameIdentifier(const QString &one, const QString &other)
{
    return one.compare(other, Qt::CaseInsensitive) == 0;
}

} // namespace

AppDelegate::AppDelegate(AppParts parts, QObject *parent)
    : QObject(parent), m_parts(std::move(parts))
{
}

AppDelegate::~AppDelegate()
{
    // Nothing runs the event loop any more that would delete them later.
    for (Display &display : m_displays)
        delete display.controller.release();
    delete m_welcome.release();
    delete m_creation.release();
    delete m_eula.release();
}

void AppDelegate::applicationWillFinishLaunching(SingleInstance *instance)
{
    TarvVM::setDisplayOpener([self = QPointer(this)](const QString &path, int index) {
        if (self)
            self->viewDisplay(path, index);
    });
    m_instance = instance;
    if (!instance)
        return;
    connect(instance, &SingleInstance::activationRequested, this, &AppDelegate::activate);
    connect(instance, &SingleInstance::openRequested, this, &AppDelegate::open);
    connect(instance, &SingleInstance::actionRequested, this, [this](const QString &name) {
        if (name == QLatin1String("new-vm") && m_parts.isEulaAccepted())
            newDocument(nullptr);
        else
            activate();
    });
}

void AppDelegate::applicationDidFinishLaunching()
{
    if (!m_parts.isEulaAccepted()) {
        MainMenu::setRestricted(true);
        m_eula.reset(m_parts.makeEulaController());
        m_eula->showWindow();
    }
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(this, WindowWillCloseNotification, [this](const Notification &closing) {
        windowWillClose(closing.object.value<QWidget *>());
    });
    m_services = std::make_unique<ServiceNotifications>();
    center.addObserver(this, QString::fromUtf8(TarvVMDidStartNotification),
                       [this](const Notification &started) { virtualMachineDidStart(started); });
    center.addObserver(this, QString::fromUtf8(TarvVMDidStopNotification),
                       [this](const Notification &stopped) { virtualMachineDidStop(stopped); });
}

void AppDelegate::launch(const QList<QUrl> &urls)
{
    if (m_eula)
        return;
    if (urls.isEmpty())
        activate();
    else
        open(urls);
}

void AppDelegate::activate()
{
    if (m_eula)
        m_eula->showWindow();
    else if (applicationShouldOpenUntitledFile())
        applicationOpenUntitledFile();
    else
        m_displays.back().controller->showWindow();
}

void AppDelegate::open(const QList<QUrl> &urls)
{
    for (const QUrl &url : urls)
        if (url.isLocalFile())
            applicationOpenFile(url.toLocalFile(), [this](bool) { showIfNothingIsOpen(); });
        else
            getUrl(url.toString(QUrl::FullyEncoded));
}

// A request that came to nothing must not leave an application without any window.
void AppDelegate::showIfNothingIsOpen()
{
    if (!m_eula && !m_welcome && !m_creation && m_displays.empty() && m_requests.empty())
        showWelcomeWindow(nullptr);
}

void AppDelegate::windowWillClose(const QWidget *window)
{
    const auto isWindowOf = [window](const Owned &controller) {
        return controller && controller->window() == window;
    };
    if (isWindowOf(m_eula)) {
        MainMenu::setRestricted(false);
        m_eula.reset();
        showWelcomeWindow(nullptr);
    } else if (isWindowOf(m_creation)) {
        m_creation.reset();
    } else if (isWindowOf(m_welcome)) {
        m_welcome.reset();
    } else {
        displayWindowWillClose(window);
    }
}

// The controller is let go on the next turn, not in the middle of its own close.
void AppDelegate::displayWindowWillClose(const QWidget *window)
{
    const auto closing = std::find_if(m_displays.begin(), m_displays.end(), [&](const Display &d) {
        return d.controller->window() == window;
    });
    if (closing == m_displays.end())
        return;
    QMetaObject::invokeMethod(
        this,
        [this, controller = closing->controller.get()] {
            std::erase_if(m_displays, [controller](const Display &display) {
                return display.controller.get() == controller;
            });
        },
        Qt::QueuedConnection);
}

void AppDelegate::virtualMachineDidStart(const Notification &notification)
{
    const QString id = identifierOf(notification.object);
    if (id.isNull())
        return;
    if (m_parts.hostType() == 2)
        m_parts.removeState(id);
    for (const Display &display : m_displays) {
        if (sameIdentifier(display.uuid, id)) {
            display.controller->showWindow();
            return;
        }
    }
    const QString path = QString::fromStdString(place_vm_socket(id.toStdString()));
    shareDisplay(path, 0, [](bool opened) {
        if (!opened)
            appLog("tarv", QStringLiteral("failed to open display"));
    });
}

void AppDelegate::virtualMachineDidStop(const Notification &notification)
{
    const QString id = identifierOf(notification.object);
    if (!id.isNull())
        m_parts.setVMStatus(id, notification.userInfo.contains(QStringLiteral("Error")) ? 1 : 0);
    if (m_termination == Termination::agreed && m_parts.runningVMs() == 0)
        QCoreApplication::exit(0);
}

void AppDelegate::applicationOpenFile(const QString &name, std::function<void(bool)> answer)
{
    if (!m_parts.isEulaAccepted()) {
        if (answer)
            answer(false);
        return;
    }
    createDisplay(name, integerValue(name.section(QLatin1Char(':'), 1, 1)),
                  [answer = std::move(answer)](bool opened) {
                      if (!opened)
                          Alert(tr("Failed to open display")).addButton(tr("Close")).runModal();
                      if (answer)
                          answer(opened);
                  });
}

void AppDelegate::getUrl(const QString &url)
{
    if (!m_parts.isEulaAccepted())
        return;
    const auto request = parseUrlRequest(url);
    if (!request) {
        appLog("tarv", QStringLiteral("not a request that can be opened: %1").arg(url));
        showIfNothingIsOpen();
        return;
    }
    const auto parameter = [&](const char *name) {
        return request->parameters.value(QLatin1String(name));
    };
    if (request->parameters.contains(QStringLiteral("o")))
        m_parts.setAddonsImage(parameter("o"));
    if (m_parts.hostType() == 2) {
        m_parts.startVM(parameter("vmid"), integerValue(parameter("a")));
        showIfNothingIsOpen();
    } else {
        viewDisplay(request->path, integerValue(parameter("d")),
                    [this](bool) { showIfNothingIsOpen(); });
    }
}

void AppDelegate::viewDisplay(const QString &path, int index, std::function<void(bool)> done)
{
    for (const Display &display : m_displays) {
        if (display.index == index && display.path == path) {
            display.controller->showWindow();
            if (done)
                done(true);
            return;
        }
    }
    shareDisplay(path, index, std::move(done));
}

// Several requests for a display that is not there yet are one.
void AppDelegate::shareDisplay(const QString &path, int index, std::function<void(bool)> done)
{
    for (Request &request : m_requests) {
        if (request.path == path && request.index == index) {
            request.waiting.push_back(std::move(done));
            return;
        }
    }
    createDisplay(path, index, std::move(done));
}

void AppDelegate::createDisplay(const QString &path, int index, std::function<void(bool)> done)
{
    m_requests.push_back({path, index, {std::move(done)}});
    m_parts.createDisplay(path, unsigned(index), this,
                          [this, path, index](std::unique_ptr<TarvDisplay> display, int) {
                              displayCreated(path, index, std::move(display));
                          });
}

void AppDelegate::displayCreated(const QString &path, int index,
                                 std::unique_ptr<TarvDisplay> display)
{
    const auto request =
        std::find_if(m_requests.begin(), m_requests.end(), [&](const Request &waiting) {
            return waiting.path == path && waiting.index == index;
        });
    const Request answered = std::move(*request);
    m_requests.erase(request);
    const bool shown = display != nullptr;
    if (display)
        showDisplay(path, index, std::move(display));
    for (const auto &done : answered.waiting)
        if (done)
            done(shown);
}

void AppDelegate::showDisplay(const QString &path, int index, std::unique_ptr<TarvDisplay> display)
{
    const QString uuid = display->uuid();
    Owned controller(m_parts.makeDisplayController(std::move(display)));
    m_displays.push_back({std::move(controller), path, uuid, index});
    m_displays.back().controller->showWindow();
}

void AppDelegate::showWelcomeWindow(QObject *)
{
    if (!m_welcome)
        m_welcome.reset(m_parts.makeWelcomeController());
    m_welcome->showWindow();
}

void AppDelegate::newDocument(QObject *)
{
    if (!m_creation && m_parts.makeCreationController)
        m_creation.reset(m_parts.makeCreationController());
    if (m_creation)
        m_creation->showWindow();
}

bool AppDelegate::validateMenuItem(QAction *item)
{
    return Responder::actionOf(item) != QLatin1String("newDocument:") ||
           m_parts.makeCreationController;
}

bool AppDelegate::applicationShouldOpenUntitledFile() const
{
    return m_displays.empty();
}

bool AppDelegate::applicationOpenUntitledFile()
{
    showWelcomeWindow(nullptr);
    return true;
}

bool AppDelegate::applicationShouldTerminateAfterLastWindowClosed() const
{
    return m_parts.runningVMs() == 0;
}

bool AppDelegate::applicationShouldTerminate()
{
    const unsigned running = m_parts.runningVMs();
    if (running == 0)
        return true;
    QString message = tr("%d VM(s) are running. Do you want to quit and terminate them?");
    message.replace(QLatin1String("%d"), QString::number(running));
    Alert alert(message);
    alert.addButton(tr("Cancel")).addButton(tr("Quit Tarv"));
    return alert.runModal() == AlertFirstButton + 1;
}

bool AppDelegate::requestTermination()
{
    if (m_termination != Termination::none)
        return m_termination == Termination::agreed;
    m_termination = Termination::asked;
    const bool agreed = applicationShouldTerminate();
    if (m_termination == Termination::agreed)
        return true; // told so meanwhile
    m_termination = Termination::none;
    if (agreed)
        terminateNow();
    return agreed;
}

void AppDelegate::terminateNow()
{
    if (std::exchange(m_termination, Termination::agreed) == Termination::agreed ||
        m_parts.runningVMs() == 0) {
        QCoreApplication::exit(0);
        return;
    }
    if (m_instance)
        m_instance->release();
    m_parts.endVMs();
    QTimer::singleShot(endWait, this, [] { QCoreApplication::exit(0); });
}

void AppDelegate::terminate(QObject *)
{
    requestTermination();
}

void AppDelegate::openGettingStartedURL(QObject *)
{
    const QUrl url(m_parts.hostType() == 1 ? gettingStartedIntel : gettingStartedArm);
    if (!m_parts.openInBrowser(url))
        Alert(tr("There is no browser to open %1 with").arg(url.toString())).runModal();
}

void AppDelegate::orderFrontStandardAboutPanel(QObject *)
{
    auto *about = new QMessageBox(QApplication::activeWindow());
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->setObjectName(QStringLiteral("about"));
    about->setWindowTitle(tr("About Tarv"));
    about->setIconPixmap(
        QApplication::windowIcon().pixmap(QSize(64, 64), about->devicePixelRatioF()));
    about->setText(QStringLiteral("<h2>%1</h2>").arg(tr("Tarv")));
    const QString version =
        tr("Version %@").replace(QLatin1String("%@"), QCoreApplication::applicationVersion());
    about->setInformativeText(version + QStringLiteral("<br>") +
                              tr("Runs virtual machines and shows their screens.")
                                  .replace(QLatin1Char(' '), QChar::Nbsp));
    about->open();
}
