#include "app/display/PasteboardSharing.h"

#include "app/display/HostPasteboard.h"
#include "app/display/OpenScreen.h"
#include "app/kit/UserDefaults.h"
#include "tarvhv/cli2/display_protocol.h"

#include <chrono>

namespace {

const QString SHARED_PASTEBOARD_KEY = QStringLiteral("sharedpasteboard");

constexpr std::chrono::milliseconds POLL_INTERVAL{500};

} // namespace

PasteboardSharing::PasteboardSharing(OpenScreen &screen)
    : m_screen(screen), m_changeCount(HostPasteboard::general().changeCount())
{
}

bool PasteboardSharing::isEnabled() const
{
    if (!m_screen.display() || (m_screen.display()->caps() & DISPLAY_CAP_COPY) == 0)
        return false;
    const UserDefaults &defaults = UserDefaults::standard();
    return !defaults.hasKey(SHARED_PASTEBOARD_KEY) || defaults.boolForKey(SHARED_PASTEBOARD_KEY);
}

void PasteboardSharing::toggle()
{
    const bool enabled = !isEnabled();
    UserDefaults::standard().setBool(SHARED_PASTEBOARD_KEY, enabled);
    if (enabled)
        startPolling();
    else
        stopPolling();
}

void PasteboardSharing::startPolling()
{
    if (!m_screen.display() || !m_screen.display()->preparePasteboardForPolling())
        return;
    m_pollTimer = std::make_unique<QTimer>();
    connect(m_pollTimer.get(), &QTimer::timeout, this, [this] {
        if (m_screen.display())
            m_screen.display()->requestPasteboard(/*polling=*/true);
    });
    m_pollTimer->start(POLL_INTERVAL);
}

void PasteboardSharing::stopPolling()
{
    m_pollTimer.reset();
}

void PasteboardSharing::windowDidBecomeKey()
{
    if (!isEnabled())
        return;
    startPolling();
    if (m_changeCount < HostPasteboard::general().changeCount())
        paste();
}

void PasteboardSharing::windowDidResignKey()
{
    stopPolling();
}

void PasteboardSharing::capsChanged(bool windowIsKey)
{
    stopPolling();
    if (windowIsKey)
        windowDidBecomeKey();
}

void PasteboardSharing::forgetChanges()
{
    m_changeCount = HostPasteboard::general().changeCount();
}

void PasteboardSharing::copy()
{
    if (m_screen.display())
        m_screen.display()->requestPasteboard(/*polling=*/false);
}

void PasteboardSharing::paste()
{
    const QByteArray archive = HostPasteboard::general().archive();
    if (!m_screen.display() || archive.isEmpty())
        return;
    m_screen.display()->sendPasteboard(archive);
    forgetChanges();
}

void PasteboardSharing::take(const QByteArray &archive)
{
    if (HostPasteboard::general().setArchive(archive))
        forgetChanges();
}
