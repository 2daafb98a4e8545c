#include "app/display/TarvWindow.h"

#include "app/kit/MainMenu.h"
#include "tarvhv/display/TarvDisplayView.h"
#include "ui_TarvWindow.h"
#include "ui_VirtualMachineWindow.h"

#include <QVBoxLayout>

TarvWindow::TarvWindow(Interface interface)
{
    if (interface == Interface::tarvWindow)
        Ui::TarvWindow().setupUi(this);
    else
        Ui::VirtualMachineWindow().setupUi(this);
    MainMenu::installIn(this);
    m_view = TarvDisplayViewCreate(centralWidget());
    m_view->setObjectName(QStringLiteral("displayView"));
    centralWidget()->layout()->addWidget(m_view);
    setFocusProxy(m_view);
    m_view->setFocus();
}

QSize TarvWindow::menuSize() const
{
    return QSize(0, menuBar()->isHidden() ? 0 : menuBar()->sizeHint().height());
}

QSizeF TarvWindow::contentSize() const
{
    return QSizeF(size() - menuSize());
}

QSizeF TarvWindow::frameSizeInPoints() const
{
    return QSizeF(frameGeometry().size());
}

void TarvWindow::setFrameSize(QSizeF frame)
{
    const QSize borders = frameGeometry().size() - size();
    resize((frame - QSizeF(borders)).toSize());
}
