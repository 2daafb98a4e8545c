#include "app/kit/FrameClock.h"

#include <algorithm>
#include <cmath>

FrameClock::FrameClock(QObject *parent) : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_requested = false;
        m_sinceTick.start();
        Q_EMIT ticked();
    });
}

void FrameClock::setScreen(QScreen *screen)
{
    m_screen = screen;
}

void FrameClock::start()
{
    m_running = true;
    if (m_requested)
        schedule();
}

void FrameClock::stop()
{
    m_running = false;
    m_timer.stop();
}

void FrameClock::requestTick()
{
    if (m_requested)
        return;
    m_requested = true;
    if (m_running)
        schedule();
}

void FrameClock::schedule()
{
    const double reported = m_screen ? m_screen->refreshRate() : 60.0;
    const double rate = std::isfinite(reported) ? std::clamp(reported, 10.0, 500.0) : 60.0;
    const double interval = 1000.0 / rate;
    const double passed =
        m_sinceTick.isValid() ? double(m_sinceTick.nsecsElapsed()) / 1e6 : interval;
    m_timer.start(int(std::max(0.0, std::ceil(interval - passed))));
}
