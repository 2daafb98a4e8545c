#include "app/list/TrackingArea.h"

#include <QEvent>
#include <QWidget>

#include <utility>

TrackingArea::TrackingArea(QWidget *widget) : QObject(widget), m_rect(widget->rect())
{
    widget->installEventFilter(this);
}

bool TrackingArea::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Enter) {
        m_inside = true;
        Q_EMIT mouseEntered();
    } else if (event->type() == QEvent::Leave && std::exchange(m_inside, false)) {
        Q_EMIT mouseExited();
    }
    return QObject::eventFilter(watched, event);
}
