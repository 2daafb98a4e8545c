#include "app/display/GuestResolution.h"

#include "app/display/OpenScreen.h"
#include "app/display/ResolutionWindowController.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/UserDefaults.h"

namespace {

const QString LIVE_RESIZE_KEY = QStringLiteral("liveResize");

} // namespace

GuestResolution::GuestResolution(OpenScreen &screen) : m_screen(screen) {}

bool GuestResolution::liveResize()
{
    return UserDefaults::standard().boolForKey(LIVE_RESIZE_KEY);
}

void GuestResolution::setLiveResize(bool live)
{
    UserDefaults::standard().setBool(LIVE_RESIZE_KEY, live);
}

bool GuestResolution::followsWindow(bool inverted) const
{
    return m_screen.allowsLiveResize() && liveResize() != inverted;
}

void GuestResolution::askForWindow()
{
    TarvDisplay *display = m_screen.display();
    const TarvDisplayView *view = m_screen.view();
    if (!display || !view)
        return;
    const QSize size = pixelsOf(view->backingAlignedRect(view->bounds()).size(), m_screen.guest());
    display->setWidth(uint32_t(size.width()), uint32_t(size.height()), display->hdpi());
}

void GuestResolution::toggleHiDPI()
{
    TarvDisplay *display = m_screen.display();
    if (!display)
        return;
    const GuestScreen other = otherDensity(m_screen.guest());
    display->setWidth(uint32_t(other.width), uint32_t(other.height), other.hdpi);
}

void GuestResolution::choose(WindowController *window)
{
    if (!m_screen.allowsLiveResize() || WindowController::attachedSheet(window->window()))
        return;
    const std::shared_ptr<ResolutionWindowController> resolution(
        new ResolutionWindowController(*m_screen.display()), DeleteLater());
    window->beginSheet(resolution->sheet(), [this, resolution](int code) {
        if (code == SHEET_CONTINUE && m_screen.display())
            m_screen.display()->setWidth(uint32_t(resolution->width()),
                                         uint32_t(resolution->height()), resolution->hdpi());
    });
}

// A guest that was asked for the view's size was asked for the aligned one. Where points are no
// whole pixels that can be one less, and the view is filled all the same.
bool GuestResolution::fillsView() const
{
    const TarvDisplayView *view = m_screen.view();
    const QRectF bounds = view->bounds();
    const GuestScreen guest = m_screen.guest();
    return guestFills(guest, bounds.size()) ||
           guestFills(guest, view->backingAlignedRect(bounds).size());
}
