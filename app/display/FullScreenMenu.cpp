#include "app/display/FullScreenMenu.h"

#include <QApplication>
#include <QLayout>
#include <QMouseEvent>

FullScreenMenu::FullScreenMenu(QMainWindow *window, QMenuBar *menu, PresentationOptions options)
    : m_window(window), m_menu(menu), m_followsPointer((options & PRESENT_HIDE_MENU_BAR) == 0)
{
    m_window->layout()->setMenuBar(nullptr);
    m_menu->hide();
    qApp->installEventFilter(this);
}

FullScreenMenu::~FullScreenMenu()
{
    if (!m_menu)
        return;
    m_window->layout()->setMenuBar(m_menu);
    m_menu->show();
}

void FullScreenMenu::place()
{
    m_menu->setGeometry(0, 0, m_window->width(), m_menu->sizeHint().height());
}

void FullScreenMenu::reveal()
{
    place();
    m_menu->show();
    m_menu->raise();
}

void FullScreenMenu::hide()
{
    if (!QApplication::activePopupWidget())
        m_menu->hide();
}

void FullScreenMenu::pointerMoved(QPoint inWindow)
{
    if (inWindow.y() > m_menu->sizeHint().height())
        hide();
    else if (inWindow.y() <= 0 && m_followsPointer)
        reveal();
}

bool FullScreenMenu::eventFilter(QObject *watched, QEvent *event)
{
    const auto *widget = qobject_cast<QWidget *>(watched);
    if (!m_menu || !widget || widget->window() != m_window)
        return false;
    switch (event->type()) {
    case QEvent::MouseMove: {
        const auto *moved = static_cast<QMouseEvent *>(event);
        // A guest that drags something to its top edge does not ask for the menu.
        if (moved->buttons() == Qt::NoButton)
            pointerMoved(widget->mapTo(m_window, moved->position().toPoint()));
        break;
    }
    case QEvent::KeyPress: // of the guest
        if (widget != m_menu)
            hide();
        break;
    default:
        break;
    }
    return false;
}
