#include "app/shell/AppDelegate.h"

#include "app/kit/Alert.h"
#include "app/kit/AppLog.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/model/TarvVM.h"
#include "app/shell/AboutPanel.h"
#include "app/shell/Arguments.h"
#include "app/shell/ServiceNotifications.h"
#include "app/shell/SingleInstance.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/tarvhv.h"

#include <QApplication>
#include <QUuid>

#include <utility>

namespace {

const QString GETTING_STARTED_INTEL =
    QStringLiteral("https://quelda.com/tarv/getting-started/x86-64");
const QString GETTING_STARTED_ARM = QStringLiteral("https://quelda.com/tarv/getting-started/arm64");

// The identifier that a notification is about: a UUID or a text; null for anything else.
QString identifierOf(const QVariant &object)
{
    if (object.userType() == QMetaType::QUuid)
        return object.toUuid().toString(QUuid::WithoutBraces);
    return object.userType() == QMetaType::QString ? object.toString() : QString();
}

} // namespace

AppDelegate::AppDelegate(AppParts parts, QObject *parent)
    : QObject(parent),
      m_parts(std::move(parts)),
      m_displays(m_parts),
      m_termination(m_parts, [this] { return !m_displays.isIdle(); })
{
    connect(&m_displays, &DisplayWindows::requestDidEnd, &m_termination,
            &Termination::somethingDidEnd);
}

AppDelegate::~AppDelegate()
{
    // Nothing runs the event loop any more that would delete them later.
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
    m_termination.setInstance(instance);
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
    center.addObserver(this, WINDOW_WILL_CLOSE, [this](const Notification &closing) {
        windowWillClose(closing.object.value<QWidget *>());
    });
    m_services = std::make_unique<ServiceNotifications>(m_instance ? m_instance->connection()
                                                                   : QDBusConnection::sessionBus());
    if (m_instance)
        connect(m_instance, &SingleInstance::connectionChanged, this,
                [this] { m_services->use(m_instance->connection()); });
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
        m_displays.bringLastForward();
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
    if (!m_eula && !m_welcome && !m_creation && m_displays.isIdle())
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
        m_displays.windowWillClose(window);
    }
}

void AppDelegate::virtualMachineDidStart(const Notification &notification)
{
    const QString id = identifierOf(notification.object);
    if (id.isNull())
        return;
    if (m_parts.hostType() == 2)
        m_parts.removeState(id);
    if (m_displays.bringForward(id))
        return;
    const QString path = QString::fromStdString(place_vm_socket(id.toStdString()));
    m_displays.share(path, 0, [](bool opened) {
        if (!opened)
            appLog("tarv", QStringLiteral("failed to open display"));
    });
}

void AppDelegate::virtualMachineDidStop(const Notification &notification)
{
    const QString id = identifierOf(notification.object);
    if (!id.isNull())
        m_parts.setVMStatus(id, notification.userInfo.contains(QStringLiteral("Error")) ? 1 : 0);
    m_termination.somethingDidEnd();
}

void AppDelegate::applicationOpenFile(const QString &name, std::function<void(bool)> answer)
{
    if (!m_parts.isEulaAccepted()) {
        if (answer)
            answer(false);
        return;
    }
    m_displays.create(name, displayIndexOf(name), [answer = std::move(answer)](bool opened) {
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
    m_displays.view(path, index, std::move(done));
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
    return m_displays.count() == 0;
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

void AppDelegate::lastWindowDidClose()
{
    m_termination.lastWindowDidClose();
}

bool AppDelegate::applicationShouldTerminate()
{
    return m_termination.isAgreedByUser();
}

bool AppDelegate::requestTermination()
{
    return m_termination.request();
}

void AppDelegate::terminateNow()
{
    m_termination.now();
}

void AppDelegate::terminate(QObject *)
{
    requestTermination();
}

void AppDelegate::openGettingStartedURL(QObject *)
{
    const QUrl url(m_parts.hostType() == 1 ? GETTING_STARTED_INTEL : GETTING_STARTED_ARM);
    if (!m_parts.openInBrowser(url))
        Alert(tr("There is no browser to open %1 with").arg(url.toString())).runModal();
}

void AppDelegate::orderFrontStandardAboutPanel(QObject *)
{
    showAboutPanel(QApplication::activeWindow());
}
