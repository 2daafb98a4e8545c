#include "app/progress/LongOperationWindow.h"

#include <QShowEvent>

LongOperationWindow::LongOperationWindow(QWidget *parent) : QDialog(parent) {}

void LongOperationWindow::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    activateWindow();
}
