#include "app/display/TarvWindowController.h"

#include "app/display/DisplayMenu.h"
#include "app/display/HostKeys.h"
#include "app/display/KeyboardLock.h"
#include "app/display/TarvWindow.h"
#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/Responder.h"
#include "app/kit/UserDefaults.h"

#include <QScreen>

namespace {

const QString HIDE_MENU_BAR_KEY = QStringLiteral("HideMenuBarInFullScreen");

// What a full-screen window is proposed: dock and menu bar come when the pointer asks for them.
constexpr PresentationOptions PROPOSED =
    PRESENT_FULL_SCREEN | PRESENT_AUTO_HIDE_DOCK | PRESENT_AUTO_HIDE_MENU_BAR;

TarvWindow *makeWindow(const OpenScreen &screen)
{
    return new TarvWindow(screen.hasPicture() ? TarvWindow::Interface::tarvWindow
                                              : TarvWindow::Interface::virtualMachineWindow);
}

} // namespace

TarvWindowController::TarvWindowController(std::unique_ptr<TarvDisplay> display)
    : m_screen(std::move(display), this),
      m_window(makeWindow(m_screen)),
      m_resolution(m_screen),
      m_frame(m_window, m_screen, m_resolution),
      m_pasteboard(m_screen),
      m_machine(this, m_screen)
{
    setWindow(m_window);
    NotificationCenter::defaultCenter().addObserver(
        this, VM_SERVICE_DID_STOP, [this](const Notification &stopped) {
            const TarvDisplay *shown = m_screen.display();
            if (shown && stopped.object.typeId() == QMetaType::QString &&
                stopped.object.toString().compare(shown->uuid(), Qt::CaseInsensitive) == 0)
                close();
        });
    windowDidLoad();
}

TarvWindowController::~TarvWindowController() = default;

void TarvWindowController::windowDidLoad()
{
    m_screen.showIn(m_window);
    connect(display(), &TarvDisplay::capsChanged, this,
            [this] { m_pasteboard.capsChanged(m_window && m_window->isActiveWindow()); });
    connect(m_window, &TarvWindow::fullScreenWillChange, this,
            &TarvWindowController::fullScreenWillChange);
    connect(m_window, &TarvWindow::fullScreenDidChange, this, [this](bool entered) {
        entered ? windowDidEnterFullScreen() : windowDidExitFullScreen();
    });
    connect(&m_screen.keyboard(), &KeyboardGrab::wayOutPressed, m_window, &TarvWindow::openMenu);
    m_screen.keyboard().setLocked(locksKeyboard());
    adjustFrameAnimate(false);
}

void TarvWindowController::showWindow()
{
    WindowController::showWindow();
    m_frame.updateLimits();
    if (!m_screen.hasPicture())
        return;
    m_screen.start(m_window);
    QMetaObject::invokeMethod(
        this, [this] { m_pasteboard.forgetChanges(); }, Qt::QueuedConnection);
}

// ---- what the display tells

void TarvWindowController::displayNotification(TarvDisplay *)
{
    // While full screen is entered or left the window's size says nothing: the guest is asked for
    // the one that comes of it.
    if (!m_screen.takeFrame() || m_frame.changesFullScreen() || m_resolution.fillsView())
        return;
    if (m_window->isInFullScreen())
        m_window->toggleFullScreen(nullptr);
    m_frame.fitToGuest(WindowFrame::Motion::animated);
}

void TarvWindowController::displayPixelsDidChange(TarvDisplay *)
{
    m_screen.takeFrame();
}

void TarvWindowController::displayPasteboardDataDidChange(TarvDisplay *, const QByteArray &archive)
{
    m_pasteboard.take(archive);
}

void TarvWindowController::displayDidClose(TarvDisplay *)
{
    close();
}

// ---- what the window is told of

void TarvWindowController::windowWillClose()
{
    m_frame.stop();
    m_pasteboard.stopPolling();
    m_screen.close();
    m_window->disconnect(this); // what it is told of on its way out is nothing to act on
    detachWindow();
    m_window = nullptr;
}

void TarvWindowController::windowDidBecomeKey()
{
    // Another window may have changed the preference, which is one for all of them.
    if (display())
        m_screen.keyboard().setLocked(locksKeyboard());
    m_pasteboard.windowDidBecomeKey();
}

void TarvWindowController::windowDidResignKey()
{
    m_pasteboard.windowDidResignKey();
}

void TarvWindowController::windowDidResize()
{
    m_frame.windowDidResize();
}

QSizeF TarvWindowController::windowWillResize(QSizeF proposed) const
{
    return m_frame.constrained(proposed);
}

void TarvWindowController::windowDidEndLiveResize()
{
    m_frame.windowDidEndLiveResize();
}

// ---- full screen

FullScreenStep TarvWindowController::fullScreenStep() const
{
    return ::fullScreenStep(m_screen.guest(), QSizeF(m_window->screen()->size()),
                            m_window->isInFullScreen(), liveResize(), allowsLiveResize());
}

void TarvWindowController::fullScreenWillChange(bool enters)
{
    if (!enters)
        return windowWillExitFullScreen();
    windowWillEnterFullScreen();
    m_window->setPresentation(windowWillUseFullScreenPresentationOptions(PROPOSED));
}

void TarvWindowController::windowWillEnterFullScreen()
{
    m_frame.beginFullScreenChange();
}

void TarvWindowController::windowDidEnterFullScreen()
{
    m_frame.endFullScreenChange();
    adjustResolution();
}

void TarvWindowController::windowWillExitFullScreen()
{
    m_frame.beginFullScreenChange();
}

void TarvWindowController::windowDidExitFullScreen()
{
    m_frame.endFullScreenChange();
    adjustResolution();
}

PresentationOptions
TarvWindowController::windowWillUseFullScreenPresentationOptions(PresentationOptions proposed) const
{
    return fullScreenOptions(proposed, UserDefaults::standard().boolForKey(HIDE_MENU_BAR_KEY));
}

// ---- the menu

DisplayMenuState TarvWindowController::menuState() const
{
    return {m_screen.guest(),      allowsLiveResize(),      display()->caps(),
            m_frame.contentSize(), m_frame.space().visible, locksKeyboard()};
}

bool TarvWindowController::validateMenuItem(QAction *item)
{
    if (!display())
        return false;
    const MenuItemState state =
        displayMenuItemState(Responder::actionOf(item),
                             item->property(MainMenu::IDENTIFIER_PROPERTY).toString(), menuState());
    if (state.checked) {
        item->setCheckable(true);
        item->setChecked(*state.checked);
    }
    return state.enabled;
}

bool TarvWindowController::allowsLiveResize() const
{
    return m_screen.allowsLiveResize();
}

bool TarvWindowController::liveResize() const
{
    return GuestResolution::liveResize();
}

void TarvWindowController::setLiveResize(bool live)
{
    GuestResolution::setLiveResize(live);
    m_frame.updateLimits();
}

void TarvWindowController::toggleLiveResize(QObject *)
{
    setLiveResize(!liveResize());
}

void TarvWindowController::adjustResolution()
{
    m_resolution.askForWindow();
}

void TarvWindowController::useHiDPI(QObject *)
{
    m_resolution.toggleHiDPI();
}

void TarvWindowController::setResolution(QObject *)
{
    m_resolution.choose(this);
}

void TarvWindowController::adjustFrameAnimate(bool animate)
{
    m_frame.fitToGuest(animate ? WindowFrame::Motion::animated : WindowFrame::Motion::immediate);
}

void TarvWindowController::zoomIn(QObject *)
{
    m_frame.zoomIn();
}

void TarvWindowController::zoomOut(QObject *)
{
    m_frame.zoomOut();
}

void TarvWindowController::zoomImageToActualSize(QObject *)
{
    m_frame.zoomToActualSize();
}

void TarvWindowController::zoomImageToHalfSize(QObject *)
{
    m_frame.zoomToHalfSize();
}

bool TarvWindowController::locksKeyboard() const
{
    return KeyboardLock::isOn();
}

void TarvWindowController::setLocksKeyboard(bool locked)
{
    KeyboardLock::setOn(locked);
    if (display())
        m_screen.keyboard().setLocked(locked);
}

void TarvWindowController::lockKeyboard(QObject *)
{
    setLocksKeyboard(!locksKeyboard());
}

bool TarvWindowController::isKeyPressed() const
{
    return HostKeys::isAnyPressed();
}

bool TarvWindowController::pasteBoardEnabled() const
{
    return m_pasteboard.isEnabled();
}

void TarvWindowController::toggleSharedPasteboard(QObject *)
{
    m_pasteboard.toggle();
}

void TarvWindowController::copy(QObject *)
{
    m_pasteboard.copy();
}

void TarvWindowController::paste(QObject *)
{
    m_pasteboard.paste();
}

void TarvWindowController::stopVirtualMachine(QObject *)
{
    m_machine.stop();
}

void TarvWindowController::forceStopVirtualMachine(QObject *)
{
    m_machine.forceStop();
}

void TarvWindowController::suspendVirtualMachine(QObject *)
{
    m_machine.suspend();
}

void TarvWindowController::rebootVirtualMachine(QObject *)
{
    m_machine.reboot();
}

void TarvWindowController::delete_(QObject *)
{
    m_machine.deleteMachine();
}

void TarvWindowController::takeScreenShot(QObject *)
{
    m_machine.takeScreenShot();
}
