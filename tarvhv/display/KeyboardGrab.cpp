#include "tarvhv/display/KeyboardGrab.h"

#include <QFocusEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QWindow>

namespace {

bool isWayOut(const QSet<int> &keys)
{
    return keys == QSet<int>{Qt::Key_Control, Qt::Key_Alt};
}

// Other platforms of Qt refuse each time with a warning.
bool windowSystemCanGrab()
{
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

} // namespace

KeyboardGrab::KeyboardGrab(QWidget *view) : m_view(view)
{
    view->installEventFilter(this);
}

KeyboardGrab::~KeyboardGrab()
{
    hold(false);
}

void KeyboardGrab::setLocked(bool locked)
{
    m_locked = locked;
    m_freed = false;
    update();
}

void KeyboardGrab::update()
{
    hold(m_view && m_locked && !m_freed && m_view->hasFocus() &&
         m_view->window()->isActiveWindow());
}

void KeyboardGrab::hold(bool held)
{
    if (m_held == held)
        return;
    if (held) {
        m_window = m_view->window()->windowHandle();
        if (!m_window || !windowSystemCanGrab() || !m_window->setKeyboardGrabEnabled(true))
            return;
    } else if (m_window) {
        m_window->setKeyboardGrabEnabled(false);
    }
    m_held = held;
    Q_EMIT heldChanged(held);
}

bool KeyboardGrab::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_view)
        return QObject::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::FocusIn:
        if (static_cast<QFocusEvent *>(event)->reason() == Qt::ActiveWindowFocusReason)
            m_freed = false;
        update();
        break;
    case QEvent::FocusOut:
    case QEvent::Hide:
    case QEvent::WindowBlocked:
        m_down.clear();
        m_armed = false;
        hold(false);
        break;
    case QEvent::MouseButtonPress:
        m_armed = false;
        m_freed = false;
        update();
        break;
    case QEvent::KeyPress:
        keyPressed(*static_cast<QKeyEvent *>(event));
        break;
    case QEvent::KeyRelease:
        keyReleased(*static_cast<QKeyEvent *>(event));
        break;
    default:
        break;
    }
    return false;
}

void KeyboardGrab::keyPressed(const QKeyEvent &event)
{
    if (event.isAutoRepeat())
        return;
    m_down.insert(event.key());
    m_armed = isWayOut(m_down);
}

void KeyboardGrab::keyReleased(const QKeyEvent &event)
{
    if (event.isAutoRepeat())
        return;
    m_down.remove(event.key());
    if (!m_armed)
        return;
    m_armed = false;
    if (!m_held) {
        Q_EMIT wayOutPressed();
        return;
    }
    m_freed = true;
    update();
}
