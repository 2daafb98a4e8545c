#include "app/display/TarvWindow.h"

#include "app/display/FullScreenMenu.h"
#include "app/display/TarvWindowController.h"
#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/SheetCodes.h"
#include "tarvhv/display/TarvDisplayView.h"
#include "ui_TarvWindow.h"
#include "ui_VirtualMachineWindow.h"

#include <QEvent>
#include <QScreen>
#include <QVBoxLayout>

#include <chrono>

namespace {

// Window managers change state and size in several steps; without one for this long it is done.
constexpr std::chrono::milliseconds FULL_SCREEN_SETTLES_AFTER{250};

} // namespace

TarvWindow::TarvWindow(Interface interface)
{
    if (interface == Interface::tarvWindow)
        Ui::TarvWindow().setupUi(this);
    else
        Ui::VirtualMachineWindow().setupUi(this);
    m_menu = MainMenu::installIn(this);
    m_view = TarvDisplayViewCreate(centralWidget());
    m_view->setObjectName(QStringLiteral("displayView"));
    centralWidget()->layout()->addWidget(m_view);
    setFocusProxy(m_view);
    m_view->setFocus();
    m_settling.setSingleShot(true);
    m_settling.setInterval(FULL_SCREEN_SETTLES_AFTER);
    connect(&m_settling, &QTimer::timeout, this,
            [this] { Q_EMIT fullScreenDidChange(m_inFullScreen); });
}

TarvWindow::~TarvWindow() = default;

QSize TarvWindow::menuSize() const
{
    const bool stands = !m_fullScreenMenu && !m_menu->isHidden();
    return QSize(0, stands ? m_menu->sizeHint().height() : 0);
}

QSizeF TarvWindow::contentSize() const
{
    return QSizeF(size() - menuSize());
}

QSizeF TarvWindow::frameSizeInPoints() const
{
    return QSizeF(frameGeometry().size());
}

QSize TarvWindow::sizeInFrame(QSizeF frame) const
{
    const QSize borders = frameGeometry().size() - size();
    return (frame - QSizeF(borders)).toSize();
}

QSizeF TarvWindow::frameAround(QSize size) const
{
    return QSizeF(size + frameGeometry().size() - this->size());
}

void TarvWindow::toggleFullScreen(QObject *)
{
    auto *controller = qobject_cast<TarvWindowController *>(WindowController::forWindow(this));
    if (!controller || !controller->display())
        return;
    switch (controller->fullScreenStep()) {
    case FullScreenStep::toggle:
        changeFullScreen();
        break;
    case FullScreenStep::refuse:
        break;
    case FullScreenStep::ask:
        if (WindowController::attachedSheet(this))
            return;
        Alert(tr("Live Resolution will be turned on"))
            .setInformativeText(
                tr("Upon switching to Full Screen, Live Resolution will be turned on"))
            .addButton(tr("Switch"))
            .addButton(tr("Cancel"))
            .beginSheet(this, [this, controller = QPointer(controller)](int result) {
                if (result != ALERT_FIRST_BUTTON || !controller)
                    return;
                controller->setLiveResize(true);
                QMetaObject::invokeMethod(this, &TarvWindow::changeFullScreen,
                                          Qt::QueuedConnection);
            });
        break;
    }
}

void TarvWindow::changeFullScreen()
{
    if (!isVisible())
        return; // it was closed meanwhile
    beginFullScreenChange(!m_inFullScreen);
    setWindowState(m_inFullScreen ? windowState() | Qt::WindowFullScreen
                                  : windowState() & ~Qt::WindowFullScreen);
}

void TarvWindow::beginFullScreenChange(bool enters)
{
    if (enters == m_inFullScreen)
        return;
    m_inFullScreen = enters;
    Q_EMIT fullScreenWillChange(enters);
    if (enters)
        m_fullScreenMenu = std::make_unique<FullScreenMenu>(this, m_menu, m_presentation);
    else
        m_fullScreenMenu.reset();
    m_settling.start();
}

void TarvWindow::openMenu()
{
    if (m_fullScreenMenu)
        m_fullScreenMenu->reveal();
    if (!m_menu->actions().isEmpty())
        m_menu->setActiveAction(m_menu->actions().constFirst());
}

void TarvWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    // The window manager, too, can enter and leave full screen.
    if (event->type() == QEvent::WindowStateChange)
        beginFullScreenChange(isFullScreen());
}

void TarvWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    if (m_settling.isActive())
        m_settling.start();
    if (m_fullScreenMenu)
        m_fullScreenMenu->place();
}
