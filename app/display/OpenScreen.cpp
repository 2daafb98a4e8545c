#include "app/display/OpenScreen.h"

#include "app/display/TarvWindow.h"
#include "app/kit/PlainText.h"

#include <QScreen>
#include <QWindow>

OpenScreen::OpenScreen(std::unique_ptr<TarvDisplay> display, TarvDisplayDelegate *delegate)
    : m_display(display.release())
{
    m_display->setDelegate(delegate);
}

OpenScreen::~OpenScreen()
{
    if (m_view)
        m_view->setDisplay(nullptr);
    if (m_display)
        m_display->setDelegate(nullptr);
    delete m_display.release(); // the application may end without another turn of its loop
}

bool OpenScreen::hasPicture() const
{
    return m_display && (m_display->surface() || m_display->fbuf());
}

GuestScreen OpenScreen::guest() const
{
    return {m_display->width(), m_display->height(), m_display->hdpi()};
}

QString OpenScreen::title() const
{
    if (!m_display)
        return {};
    if (m_display->totalDisplays() < 2)
        return m_display->name();
    return tr("%1 (display %2)").arg(m_display->name(), QString::number(m_display->index()));
}

QString OpenScreen::windowTitle() const
{
    const bool keys = m_keyboard && m_keyboard->isHeld();
    if (m_pointerGrabbed && keys)
        return tr("%1 - Control and Alt release pointer and keyboard").arg(title());
    if (m_pointerGrabbed)
        return tr("%1 - Control and Alt release the pointer").arg(title());
    if (keys)
        return tr("%1 - Control and Alt release the keyboard").arg(title());
    return title();
}

void OpenScreen::showIn(TarvWindow *window)
{
    m_view = window->displayView();
    m_view->setDisplay(m_display.get());
    m_keyboard = std::make_unique<KeyboardGrab>(m_view);
    const auto showTitle = [this, window] {
        window->setWindowTitle(PlainText::forTitle(windowTitle()));
    };
    showTitle();
    connect(m_view, &TarvDisplayView::pointerGrabChanged, this, [this, showTitle](bool grabbed) {
        m_pointerGrabbed = grabbed;
        if (!grabbed && m_keyboard)
            m_keyboard->disarm();
        showTitle();
    });
    connect(m_keyboard.get(), &KeyboardGrab::heldChanged, this, showTitle);
    if (!hasPicture())
        return;
    m_clock = std::make_unique<FrameClock>();
    m_clock->setScreen(window->screen());
    connect(m_clock.get(), &FrameClock::ticked, this, [this] {
        if (m_view)
            m_view->setNeedsDisplay(true);
    });
}

void OpenScreen::start(const TarvWindow *window)
{
    if (!m_clock)
        return;
    // The clock goes by the screen that the window is on.
    m_clock->setScreen(window->screen());
    if (window->windowHandle())
        connect(window->windowHandle(), &QWindow::screenChanged, m_clock.get(),
                &FrameClock::setScreen, Qt::UniqueConnection);
    QMetaObject::invokeMethod(m_clock.get(), &FrameClock::start, Qt::QueuedConnection);
}

bool OpenScreen::takeFrame()
{
    if (!m_display || !m_view || (!m_display->surface() && !m_display->fbctl()))
        return false;
    m_view->setNeedsScreenTextureUpdate(true);
    if (m_clock)
        m_clock->requestTick();
    return true;
}

void OpenScreen::close()
{
    m_clock.reset();
    if (m_view)
        m_view->setDisplay(nullptr);
    m_keyboard.reset();
    m_view = nullptr;
    if (m_display)
        m_display->setDelegate(nullptr);
    m_display.reset();
}
