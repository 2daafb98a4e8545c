#include "app/list/WelcomeWindow.h"

#include <QAction>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QWindow>

using namespace Qt::StringLiterals;

WelcomeWindow::WelcomeWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(u"WelcomeWindow"_s);
}

bool WelcomeWindow::validateMenuItem(QAction *item) const
{
    const QString action = item->property("action").toString();
    if (action == "performClose:"_L1)
        return true;
    if (action == "performMiniaturize:"_L1)
        return windowFlags().testFlag(Qt::WindowMinimizeButtonHint);
    if (action == "performZoom:"_L1)
        return windowFlags().testFlag(Qt::WindowMaximizeButtonHint);
    return true;
}

void WelcomeWindow::performClose(QObject *)
{
    close();
}

void WelcomeWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && !event->isAutoRepeat())
        Q_EMIT escapePressed();
    else
        QMainWindow::keyPressEvent(event);
}

void WelcomeWindow::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && windowHandle())
        windowHandle()->startSystemMove();
    QMainWindow::mousePressEvent(event);
}
