#include "app/display/GuestResolution.h"

#include "app/display/OpenScreen.h"
#include "app/display/ResolutionWindowController.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/UserDefaults.h"

#include <cstdlib>
#include <utility>

namespace {

const QString LIVE_RESIZE_KEY = QStringLiteral("liveResize");

// A guest may round a size that it is asked for to what its video mode can be.
constexpr int MODE_GRANULARITY = 16;

bool isAnswerTo(QSize asked, QSize size)
{
    return !asked.isEmpty() && std::abs(asked.width() - size.width()) < MODE_GRANULARITY &&
           std::abs(asked.height() - size.height()) < MODE_GRANULARITY;
}

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
    m_askedSize = pixelsOf(view->backingAlignedRect(view->bounds()).size(), m_screen.guest());
    display->setWidth(uint32_t(m_askedSize.width()), uint32_t(m_askedSize.height()),
                      display->hdpi());
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

void GuestResolution::settle()
{
    const GuestScreen guest = m_screen.guest();
    m_guestSize = QSize(guest.width, guest.height);
}

bool GuestResolution::changedByGuest()
{
    // Only a change of the guest's counts: the user may have scaled the window since the last one.
    const GuestScreen guest = m_screen.guest();
    const QSize size(guest.width, guest.height);
    if (std::exchange(m_guestSize, size) == size ||
        guestFills(guest, m_screen.view()->bounds().size()))
        return false;
    if (isAnswerTo(m_askedSize, size))
        return false;
    m_askedSize = {};
    return true;
}
