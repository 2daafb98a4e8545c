#include "app/display/WindowFrame.h"

#include "app/display/GuestResolution.h"
#include "app/display/OpenScreen.h"
#include "app/display/TarvWindow.h"

#include <QGuiApplication>
#include <QScreen>

#include <chrono>

namespace {

// The window system does not say when the user lets go of an edge; no change for this long does.
constexpr std::chrono::milliseconds RESIZE_ENDS_AFTER{250};

} // namespace

WindowFrame::WindowFrame(TarvWindow *window, OpenScreen &screen, GuestResolution &resolution)
    : m_window(window), m_screen(screen), m_resolution(resolution)
{
    m_resizing.setSingleShot(true);
    m_resizing.setInterval(RESIZE_ENDS_AFTER);
    connect(&m_resizing, &QTimer::timeout, this, &WindowFrame::resizingSettled);
}

WindowSpace WindowFrame::space() const
{
    return {m_window->frameSizeInPoints() - m_window->contentSize(),
            QSizeF(m_window->screen()->availableSize())};
}

QSizeF WindowFrame::contentSize() const
{
    return m_window->contentSize();
}

bool WindowFrame::isFree() const
{
    return !m_window->isMaximized() && !m_window->isInFullScreen();
}

void WindowFrame::setFrame(QSizeF frame)
{
    m_zoomInProgress = true;
    m_window->resize(m_window->sizeInFrame(frame));
    m_settledFrame = m_window->frameSizeInPoints();
    m_zoomInProgress = false;
}

void WindowFrame::fitToGuest()
{
    if (m_screen.display())
        setFrame(fittedFrame(m_screen.guest(), space()));
}

bool WindowFrame::guestFollows() const
{
    return m_resolution.followsWindow(m_modifiers.testFlag(Qt::ControlModifier));
}

QSizeF WindowFrame::constrained(QSizeF proposed) const
{
    if (!m_screen.display())
        return proposed;
    const ResizeMode mode = !m_screen.allowsLiveResize() ? ResizeMode::fixed
                            : guestFollows()             ? ResizeMode::live
                                                         : ResizeMode::scaled;
    return constrainedFrame(m_screen.guest(), mode, m_settledFrame, proposed, space());
}

void WindowFrame::windowDidResize()
{
    if (m_zoomInProgress || m_fullScreenChanges || !m_screen.display() || !m_window->isVisible())
        return;
    m_modifiers = QGuiApplication::queryKeyboardModifiers();
    m_resizing.start();
}

// What the window system gave is brought to what it may be. A window system that insists on its own
// size is not asked twice.
void WindowFrame::resizingSettled()
{
    if (!m_screen.display())
        return;
    const QSizeF proposed = m_window->frameSizeInPoints();
    const QSizeF allowed = constrained(proposed);
    if (isFree() && allowed != proposed && proposed != m_refusedFrame) {
        m_refusedFrame = proposed;
        setFrame(allowed);
    }
    m_settledFrame = m_window->frameSizeInPoints();
    windowDidEndLiveResize();
}

void WindowFrame::windowDidEndLiveResize()
{
    if (m_zoomInProgress || !guestFollows())
        return;
    if (isFree()) {
        const QSizeF content = contentSize();
        setFrame(QSizeF(snapLength(content.width()), snapLength(content.height())) + space().extra);
    }
    m_resolution.askForWindow();
}

void WindowFrame::beginFullScreenChange()
{
    m_fullScreenChanges = true;
    m_resizing.stop();
}

void WindowFrame::endFullScreenChange()
{
    m_fullScreenChanges = false;
    m_settledFrame = m_window->frameSizeInPoints();
}

void WindowFrame::stop()
{
    m_resizing.stop();
}

void WindowFrame::zoomIn()
{
    if (m_screen.display())
        setFrame(zoomedInFrame(m_screen.guest(), contentSize(), space()));
}

void WindowFrame::zoomOut()
{
    if (m_screen.display())
        setFrame(zoomedOutContent(contentSize()) + space().extra);
}

void WindowFrame::zoomToActualSize()
{
    if (!m_screen.display())
        return;
    const GuestScreen guest = m_screen.guest();
    if (fitsVisible(guestContent(guest, guestScale(guest)) + space().extra, space()))
        fitToGuest();
}

void WindowFrame::zoomToHalfSize()
{
    if (!m_screen.display())
        return;
    const GuestScreen guest = m_screen.guest();
    const QSizeF frame = guestContent(guest, guestHalfScale(guest)) + space().extra;
    if (fitsVisible(frame, space()))
        setFrame(frame);
}
