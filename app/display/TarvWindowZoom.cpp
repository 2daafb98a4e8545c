// The window's size: fitted to the guest, zoomed, resized by the user. And what the menu offers.
#include "app/display/ResolutionWindowController.h"
#include "app/display/TarvWindow.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/MainMenu.h"
#include "app/kit/Responder.h"
#include "app/kit/SheetCodes.h"

#include <QGuiApplication>
#include <QScreen>

GuestScreen TarvWindowController::guest() const
{
    return {m_display->width(), m_display->height(), m_display->hdpi()};
}

WindowSpace TarvWindowController::space() const
{
    return {m_window->frameSizeInPoints() - m_window->contentSize(),
            QSizeF(m_window->screen()->availableSize())};
}

// Whether the window's size is its own to choose.
bool TarvWindowController::isShownFree() const
{
    return !m_window->isMaximized() && !m_window->isFullScreen();
}

void TarvWindowController::setFrame(QSizeF frame)
{
    m_zoomInProgress = true;
    m_window->setFrameSize(frame);
    m_settledFrame = m_window->frameSizeInPoints();
    m_zoomInProgress = false;
}

void TarvWindowController::adjustFrameAnimate(bool)
{
    if (m_display)
        setFrame(fitted_frame(guest(), space()));
}

void TarvWindowController::adjustResolution()
{
    if (!m_display || !m_view)
        return;
    const QSizeF size = m_view->backingAlignedRect(m_view->bounds()).size() * guest_scale(guest());
    m_askedSize = QSize(int(size.width()), int(size.height()));
    m_display->setWidth(uint32_t(size.width()), uint32_t(size.height()), m_display->hdpi());
}

// Live resolution, inverted while Control is held.
bool TarvWindowController::guestFollows() const
{
    const bool inverted = m_modifiers.testFlag(Qt::ControlModifier);
    return allowsLiveResize() && liveResize() != inverted;
}

QSizeF TarvWindowController::windowWillResize(QSizeF proposed) const
{
    if (!m_display)
        return proposed;
    const ResizeMode mode = !allowsLiveResize() ? ResizeMode::fixed
                            : guestFollows()    ? ResizeMode::live
                                                : ResizeMode::scaled;
    return constrained_frame(guest(), mode, m_settledFrame, proposed, space());
}

void TarvWindowController::windowDidResize()
{
    if (m_zoomInProgress || !m_display || !m_window->isVisible())
        return;
    m_modifiers = QGuiApplication::queryKeyboardModifiers();
    m_resizing.start();
}

// What the window system gave is brought to what it may be. A window system that insists on its own
// size is not asked twice.
void TarvWindowController::resizingSettled()
{
    if (!m_display)
        return;
    const QSizeF proposed = m_window->frameSizeInPoints();
    const QSizeF allowed = windowWillResize(proposed);
    if (isShownFree() && allowed != proposed && proposed != m_refusedFrame) {
        m_refusedFrame = proposed;
        setFrame(allowed);
    }
    m_settledFrame = m_window->frameSizeInPoints();
    windowDidEndLiveResize();
}

void TarvWindowController::windowDidEndLiveResize()
{
    if (m_zoomInProgress || !guestFollows())
        return;
    if (isShownFree()) {
        const QSizeF content = m_window->contentSize();
        setFrame(QSizeF(snap_length(content.width()), snap_length(content.height())) +
                 space().extra);
    }
    adjustResolution();
}

void TarvWindowController::zoomIn(QObject *)
{
    if (m_display)
        setFrame(zoomed_in_frame(guest(), m_window->contentSize(), space()));
}

void TarvWindowController::zoomOut(QObject *)
{
    if (m_display)
        setFrame(zoomed_out_content(m_window->contentSize()) + space().extra);
}

void TarvWindowController::zoomImageToActualSize(QObject *)
{
    if (!m_display)
        return;
    const QSizeF content = guest_content(guest(), guest_scale(guest()));
    if (fits_visible(content + space().extra, space()))
        adjustFrameAnimate(true);
}

void TarvWindowController::zoomImageToHalfSize(QObject *)
{
    if (!m_display)
        return;
    const QSizeF frame = guest_content(guest(), guest_half_scale(guest())) + space().extra;
    if (fits_visible(frame, space()))
        setFrame(frame);
}

void TarvWindowController::useHiDPI(QObject *)
{
    if (!m_display)
        return;
    const uint32_t width = uint32_t(m_display->width());
    const uint32_t height = uint32_t(m_display->height());
    if (m_display->hdpi())
        m_display->setWidth(width / 2, height / 2, false);
    else
        m_display->setWidth(width * 2, height * 2, true);
}

void TarvWindowController::setResolution(QObject *)
{
    if (!allowsLiveResize() || attachedSheet(window()))
        return;
    const std::shared_ptr<ResolutionWindowController> resolution(
        new ResolutionWindowController(*m_display), DeleteLater());
    beginSheet(resolution->sheet(), [this, resolution](int code) {
        if (code == SheetContinue && m_display)
            m_display->setWidth(uint32_t(resolution->width()), uint32_t(resolution->height()),
                                resolution->hdpi());
    });
}

bool TarvWindowController::validateMenuItem(QAction *item)
{
    const auto checked = [item](bool on) {
        item->setCheckable(true);
        item->setChecked(on);
        return true;
    };
    if (!m_display)
        return false;
    if (item->property(MainMenu::identifierProperty) == QLatin1String("USEHIDPI"))
        return allowsLiveResize() && checked(m_display->hdpi());
    const QString action = Responder::actionOf(item);
    const QSizeF content = m_window->contentSize();
    const auto shows = [&](double scale) { // the guest at this scale
        return content * scale == QSizeF(m_display->width(), m_display->height());
    };
    const double scale = guest_scale(guest());
    if (action == QLatin1String("paste:"))
        return (m_display->caps() & DISPLAY_CAP_PASTE) != 0;
    if (action == QLatin1String("copy:"))
        return (m_display->caps() & DISPLAY_CAP_COPY) != 0;
    if (action == QLatin1String("setResolution:"))
        return allowsLiveResize();
    if (action == QLatin1String("zoomIn:"))
        return content.height() * scale < m_display->height() &&
               content.width() * scale < m_display->width();
    if (action == QLatin1String("zoomOut:"))
        return content.height() > CONTENT_MINIMUM.height() &&
               content.width() > CONTENT_MINIMUM.width();
    if (action == QLatin1String("zoomImageToActualSize:"))
        return (content.width() <= space().visible.width() ||
                content.height() <= space().visible.height()) &&
               !shows(scale);
    if (action == QLatin1String("zoomImageToHalfSize:"))
        return !shows(guest_half_scale(guest()));
    if (action == QLatin1String("lockKeyboard:"))
        return checked(locksKeyboard());
    return true;
}
