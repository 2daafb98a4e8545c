// The pasteboard that a window's guest shares with the host.
#include "app/display/HostPasteboard.h"
#include "app/display/TarvWindow.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/UserDefaults.h"

#include <chrono>

namespace {

const QString sharedPasteboardKey = QStringLiteral("sharedpasteboard");

constexpr std::chrono::milliseconds POLL_INTERVAL{500};

} // namespace

bool TarvWindowController::pasteBoardEnabled() const
{
    if (!m_display || (m_display->caps() & DISPLAY_CAP_COPY) == 0)
        return false;
    const UserDefaults &defaults = UserDefaults::standard();
    return !defaults.hasKey(sharedPasteboardKey) || defaults.boolForKey(sharedPasteboardKey);
}

void TarvWindowController::toggleSharedPasteboard(QObject *)
{
    const bool enabled = !pasteBoardEnabled();
    UserDefaults::standard().setBool(sharedPasteboardKey, enabled);
    if (enabled)
        startPasteboardPolling();
    else
        stopPasteboardPolling();
}

void TarvWindowController::startPasteboardPolling()
{
    if (!m_display || !m_display->preparePasteboardForPolling())
        return;
    m_pollTimer = std::make_unique<QTimer>();
    connect(m_pollTimer.get(), &QTimer::timeout, this, [this] {
        if (m_display)
            m_display->requestPasteboard(/*polling=*/true);
    });
    m_pollTimer->start(POLL_INTERVAL);
}

void TarvWindowController::stopPasteboardPolling()
{
    m_pollTimer.reset();
}

void TarvWindowController::windowDidBecomeKey()
{
    if (!pasteBoardEnabled())
        return;
    startPasteboardPolling();
    if (m_changeCount < HostPasteboard::general().changeCount())
        paste(nullptr);
}

// A guest can begin to share its pasteboard long after its window was opened, and end it.
void TarvWindowController::capsChanged()
{
    stopPasteboardPolling();
    if (m_window && m_window->isActiveWindow())
        windowDidBecomeKey();
}

void TarvWindowController::windowDidResignKey()
{
    stopPasteboardPolling();
}

void TarvWindowController::copy(QObject *)
{
    if (m_display)
        m_display->requestPasteboard(/*polling=*/false);
}

void TarvWindowController::paste(QObject *)
{
    const QByteArray archive = HostPasteboard::general().archive();
    if (!m_display || archive.isEmpty())
        return;
    m_display->sendPasteboard(archive);
    m_changeCount = HostPasteboard::general().changeCount();
}

void TarvWindowController::displayPasteboardDataDidChange(TarvDisplay *, const QByteArray &archive)
{
    if (HostPasteboard::general().setArchive(archive))
        m_changeCount = HostPasteboard::general().changeCount();
}
