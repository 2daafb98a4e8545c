#include "app/display/TarvWindowController.h"

#include "app/display/HostPasteboard.h"
#include "app/display/TarvWindow.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/UserDefaults.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <cstdlib>
#include <utility>

namespace {

const QString liveResizeKey = QStringLiteral("liveResize");
const QString lockKeyboardKey = QStringLiteral("lockKeyboard");

// The window system does not say when the user lets go of an edge; no change for this long does.
constexpr std::chrono::milliseconds RESIZE_ENDS_AFTER{250};

// A guest may round a size that it is asked for to what its video mode can be.
constexpr int MODE_GRANULARITY = 16;

bool is_answer_to(QSize asked, QSize size)
{
    return !asked.isEmpty() && std::abs(asked.width() - size.width()) < MODE_GRANULARITY &&
           std::abs(asked.height() - size.height()) < MODE_GRANULARITY;
}

TarvWindow *make_window(const TarvDisplay &display)
{
    const bool hasPicture = display.surface() || display.fbuf();
    return new TarvWindow(hasPicture ? TarvWindow::Interface::tarvWindow
                                     : TarvWindow::Interface::virtualMachineWindow);
}

} // namespace

TarvWindowController::TarvWindowController(std::unique_ptr<TarvDisplay> display)
    : m_display(display.release()),
      m_window(make_window(*m_display)),
      m_view(m_window->displayView()),
      m_changeCount(HostPasteboard::general().changeCount())
{
    setWindow(m_window);
    m_display->setDelegate(this);
    NotificationCenter::defaultCenter().addObserver(
        this, VMServiceDidStop, [this](const Notification &stopped) {
            if (m_display && stopped.object.typeId() == QMetaType::QString &&
                stopped.object.toString().compare(m_display->uuid(), Qt::CaseInsensitive) == 0)
                close();
        });
    windowDidLoad();
}

TarvWindowController::~TarvWindowController()
{
    if (m_view)
        m_view->setDisplay(nullptr);
    if (m_display)
        m_display->setDelegate(nullptr);
    stopPasteboardPolling();
    delete m_display.release(); // the application may end without another turn of its loop
}

void TarvWindowController::windowDidLoad()
{
    m_window->setWindowTitle(title());
    m_view->setDisplay(m_display.get());
    connect(m_display.get(), &TarvDisplay::capsChanged, this, &TarvWindowController::capsChanged);
    connect(m_view, &TarvDisplayView::pointerGrabChanged, this, [this](bool grabbed) {
        m_window->setWindowTitle(
            grabbed ? tr("%1 - Control and Alt release the pointer").arg(title()) : title());
    });
    m_resizing.setSingleShot(true);
    m_resizing.setInterval(RESIZE_ENDS_AFTER);
    connect(&m_resizing, &QTimer::timeout, this, &TarvWindowController::resizingSettled);
    m_guestSize = QSize(m_display->width(), m_display->height());
    m_zoomInProgress = true;
    adjustFrameAnimate(false);
    m_zoomInProgress = false;
    if (m_display->fbuf() || m_display->surface()) {
        m_clock = std::make_unique<FrameClock>();
        m_clock->setScreen(m_window->screen());
        connect(m_clock.get(), &FrameClock::ticked, this, [this] {
            if (m_view)
                m_view->setNeedsDisplay(true);
        });
    }
}

QString TarvWindowController::title() const
{
    if (!m_display)
        return {};
    if (m_display->totalDisplays() < 2)
        return m_display->name();
    return tr("%1 (display %2)").arg(m_display->name()).arg(m_display->index());
}

void TarvWindowController::showWindow()
{
    WindowController::showWindow();
    if (!m_clock)
        return;
    connectScreen();
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (!m_clock)
                return;
            m_clock->start();
            m_changeCount = HostPasteboard::general().changeCount();
        },
        Qt::QueuedConnection);
}

// The clock goes by the screen that the window is on.
void TarvWindowController::connectScreen()
{
    m_clock->setScreen(m_window->screen());
    if (m_window->windowHandle())
        connect(m_window->windowHandle(), &QWindow::screenChanged, m_clock.get(),
                &FrameClock::setScreen, Qt::UniqueConnection);
}

bool TarvWindowController::allowsLiveResize() const
{
    return m_display && m_display->allowsLiveResize();
}

bool TarvWindowController::liveResize() const
{
    return UserDefaults::standard().boolForKey(liveResizeKey);
}

void TarvWindowController::setLiveResize(bool live)
{
    UserDefaults::standard().setBool(liveResizeKey, live);
}

bool TarvWindowController::locksKeyboard() const
{
    return UserDefaults::standard().boolForKey(lockKeyboardKey);
}

void TarvWindowController::setLocksKeyboard(bool locked)
{
    UserDefaults::standard().setBool(lockKeyboardKey, locked);
}

void TarvWindowController::lockKeyboard(QObject *)
{
    setLocksKeyboard(!locksKeyboard());
}

void TarvWindowController::toggleLiveResize(QObject *)
{
    setLiveResize(!liveResize());
}

void TarvWindowController::displayNotification(TarvDisplay *)
{
    if (!m_display || !m_view || (!m_display->surface() && !m_display->fbctl()))
        return;
    m_view->setNeedsScreenTextureUpdate(true);
    if (m_clock)
        m_clock->requestTick();
    // Only a change of the guest's fits the window to it: the user may have scaled it since.
    const QSize size(m_display->width(), m_display->height());
    if (std::exchange(m_guestSize, size) == size || guest_fills(guest(), m_view->bounds().size()))
        return;
    if (is_answer_to(m_askedSize, size))
        return;
    m_askedSize = {};
    if (!isShownFree())
        return;
    m_zoomInProgress = true;
    adjustFrameAnimate(true);
    m_zoomInProgress = false;
}

void TarvWindowController::displayDidClose(TarvDisplay *)
{
    close();
}

void TarvWindowController::windowWillClose()
{
    if (m_clock)
        m_clock->stop();
    m_resizing.stop();
    stopPasteboardPolling();
    if (m_view)
        m_view->setDisplay(nullptr);
    m_view = nullptr;
    if (m_display)
        m_display->setDelegate(nullptr);
    m_display.reset();
    detachWindow();
    m_window = nullptr;
}
