#include "app/display/WindowFrame.h"

#include "app/display/GuestResolution.h"
#include "app/display/OpenScreen.h"
#include "app/display/ResizeHints.h"
#include "app/display/TarvWindow.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>

#include <chrono>
#include <cmath>
#include <utility>

namespace {

// The window system does not say when the user lets go of an edge; no change for this long does.
constexpr std::chrono::milliseconds RESIZE_ENDS_AFTER{250};
// Long enough to be followed by the eye, short enough not to be waited for.
constexpr std::chrono::milliseconds MOTION_TAKES{150};

// Whether a content is no larger than its limits and has their aspect ratio, as far as whole points
// allow.
bool keepsAspect(QSizeF content, const ResizeLimits &limits)
{
    const double height = content.width() * limits.aspect.height() / limits.aspect.width();
    const double width = content.height() * limits.aspect.width() / limits.aspect.height();
    return content.width() <= limits.largest.width() + 1 &&
           content.height() <= limits.largest.height() + 1 &&
           (std::abs(height - content.height()) <= 1 || std::abs(width - content.width()) <= 1);
}

} // namespace

WindowFrame::WindowFrame(TarvWindow *window, OpenScreen &screen, GuestResolution &resolution)
    : m_window(window), m_screen(screen), m_resolution(resolution)
{
    m_resizing.setSingleShot(true);
    m_resizing.setInterval(RESIZE_ENDS_AFTER);
    connect(&m_resizing, &QTimer::timeout, this, &WindowFrame::resizingSettled);
    m_motion.setDuration(int(MOTION_TAKES.count()));
    m_motion.setEasingCurve(QEasingCurve::InOutQuad);
    connect(&m_motion, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &size) { resizeWindow(size.toSize()); });
    connect(&m_motion, &QVariantAnimation::finished, this, &WindowFrame::frameIsSet);
    window->displayView()->installEventFilter(this);
}

WindowSpace WindowFrame::space() const
{
    return {m_window->frameSizeInPoints() - m_window->contentSize(),
            QSizeF(m_window->screen()->availableSize())};
}

QSize WindowFrame::aimedSize() const
{
    return m_motion.state() == QAbstractAnimation::Running ? m_motion.endValue().toSize()
                                                           : m_window->size();
}

QSizeF WindowFrame::contentSize() const
{
    return QSizeF(aimedSize() - m_window->menuSize());
}

bool WindowFrame::isFree() const
{
    return !m_window->isMaximized() && !m_window->isInFullScreen();
}

bool WindowFrame::zoomInProgress() const
{
    return m_sizeIsOurs || m_fullScreenChanges || m_motion.state() == QAbstractAnimation::Running;
}

void WindowFrame::setFrame(QSizeF frame, Motion motion)
{
    const QSize size = m_window->sizeInFrame(frame);
    m_motion.stop();
    if (motion == Motion::immediate || !m_window->isVisible()) {
        resizeWindow(size);
        frameIsSet();
        return;
    }
    m_motion.setStartValue(m_window->size());
    m_motion.setEndValue(size);
    m_motion.start();
}

void WindowFrame::resizeWindow(QSize size)
{
    m_sizeIsOurs = true;
    m_window->resize(size);
    m_sizeIsOurs = false;
}

void WindowFrame::frameIsSet()
{
    m_settledSize = m_window->size();
    updateLimits();
}

void WindowFrame::fitToGuest(Motion motion)
{
    if (!m_screen.display() || m_window->isMaximized())
        return;
    m_fitDue = m_resizing.isActive() || m_fullScreenChanges;
    if (!m_resizing.isActive())
        setFrame(fittedFrame(m_screen.guest(), space()), motion);
}

ResizeMode WindowFrame::resizeMode(bool inverted) const
{
    if (!m_screen.allowsLiveResize())
        return ResizeMode::fixed;
    return m_resolution.followsWindow(inverted) ? ResizeMode::live : ResizeMode::scaled;
}

QSizeF WindowFrame::constrained(QSizeF proposed) const
{
    if (!m_screen.display())
        return proposed;
    return constrainedFrame(m_screen.guest(), resizeMode(m_modifiers.testFlag(Qt::ControlModifier)),
                            m_window->frameAround(m_settledSize), proposed, space());
}

void WindowFrame::updateLimits()
{
    if (!m_screen.display() || !m_window->isVisible())
        return;
    const bool inverted = QGuiApplication::queryKeyboardModifiers().testFlag(Qt::ControlModifier);
    const ResizeLimits limits = isFree() && !zoomInProgress()
                                    ? resizeLimits(m_screen.guest(), resizeMode(inverted), space())
                                    : ResizeLimits();
    const qreal ratio = m_window->devicePixelRatioF();
    const QSize menu = m_window->menuSize();
    const auto hint = [&](QSizeF content) {
        return content.isEmpty() ? QSize() : ((content + QSizeF(menu)) * ratio).toSize();
    };
    // A frame that was cut to the screen keeps no aspect ratio, and is not to be given one by the
    // window manager.
    const bool within = limits.aspect.isEmpty() || keepsAspect(contentSize(), limits);
    setResizeHints(m_window->windowHandle(),
                   {hint(limits.least), within ? hint(limits.largest) : QSize(),
                    within ? limits.aspect : QSize(), (QSizeF(menu) * ratio).toSize()});
}

// Control inverts what a drag does: the limits go with it before an edge is taken.
bool WindowFrame::eventFilter(QObject *, QEvent *event)
{
    const bool key = event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease;
    if (key && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Control &&
        !static_cast<QKeyEvent *>(event)->isAutoRepeat())
        updateLimits();
    return false;
}

void WindowFrame::windowDidResize()
{
    if (zoomInProgress() || !m_screen.display() || !m_window->isVisible())
        return;
    m_modifiers = QGuiApplication::queryKeyboardModifiers();
    m_resizing.start();
}

// What the window system gave is brought to what it may be. A window system that insists on its own
// size is not asked twice.
void WindowFrame::resizingSettled()
{
    const bool fit = std::exchange(m_fitDue, false);
    if (!m_screen.display())
        return;
    // A size of ours that the window system confirms late is not the user's.
    const QSize size = m_window->size();
    const bool resized = size != m_settledSize;
    if (resized && isFree() && size != m_refusedSize) {
        const QSize allowed = m_window->sizeInFrame(constrained(m_window->frameSizeInPoints()));
        if (allowed != size) {
            m_refusedSize = size;
            resizeWindow(allowed);
        }
    }
    frameIsSet();
    const bool follows = m_resolution.followsWindow(m_modifiers.testFlag(Qt::ControlModifier));
    if (fit && !follows)
        fitToGuest(Motion::animated);
    else if (resized)
        windowDidEndLiveResize();
}

void WindowFrame::windowDidEndLiveResize()
{
    if (zoomInProgress() || !m_resolution.followsWindow(m_modifiers.testFlag(Qt::ControlModifier)))
        return;
    if (isFree()) {
        const QSizeF content = contentSize();
        setFrame(QSizeF(snapLength(content.width()), snapLength(content.height())) + space().extra,
                 Motion::immediate);
    }
    m_resolution.askForWindow();
}

// Limits of the window's size would stand in the way of the screen's.
void WindowFrame::beginFullScreenChange()
{
    m_fullScreenChanges = true;
    m_resizing.stop();
    m_motion.stop();
    updateLimits();
}

// The window manager gives a window that leaves full screen its former size, whatever it was given
// meanwhile.
void WindowFrame::endFullScreenChange()
{
    m_fullScreenChanges = false;
    frameIsSet();
    if (std::exchange(m_fitDue, false) && isFree())
        fitToGuest(Motion::immediate);
}

void WindowFrame::stop()
{
    m_resizing.stop();
    m_motion.stop();
}

void WindowFrame::zoomIn()
{
    if (m_screen.display())
        setFrame(zoomedInFrame(m_screen.guest(), contentSize(), space()), Motion::animated);
}

void WindowFrame::zoomOut()
{
    if (m_screen.display())
        setFrame(zoomedOutContent(contentSize()) + space().extra, Motion::animated);
}

void WindowFrame::zoomToActualSize()
{
    if (!m_screen.display())
        return;
    const GuestScreen guest = m_screen.guest();
    if (fitsVisible(guestContent(guest, guestScale(guest)) + space().extra, space()))
        fitToGuest(Motion::animated);
}

void WindowFrame::zoomToHalfSize()
{
    if (!m_screen.display())
        return;
    const GuestScreen guest = m_screen.guest();
    const QSizeF frame = guestContent(guest, guestHalfScale(guest)) + space().extra;
    if (fitsVisible(frame, space()))
        setFrame(frame, Motion::animated);
}
