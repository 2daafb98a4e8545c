#include "app/kit/WindowController.h"

#include "app/kit/MainMenu.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/SheetCodes.h"

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>

namespace {

constexpr char CONTROLLER_PROPERTY[] = "windowController";

QPointer<QWidget> &lastKeyWindow()
{
    static QPointer<QWidget> window;
    return window;
}

} // namespace

WindowController::WindowController(QObject *parent) : QObject(parent) {}

WindowController::~WindowController()
{
    if (m_window) {
        m_window->removeEventFilter(this);
        delete m_window;
    }
}

WindowController *WindowController::forWindow(const QWidget *window)
{
    if (!window)
        return nullptr;
    return qobject_cast<WindowController *>(
        window->property(CONTROLLER_PROPERTY).value<QObject *>());
}

void WindowController::setWindow(QWidget *window)
{
    m_window = window;
    window->setProperty(CONTROLLER_PROPERTY, QVariant::fromValue<QObject *>(this));
    window->installEventFilter(this);
}

void WindowController::detachWindow()
{
    if (!m_window)
        return;
    m_window->removeEventFilter(this);
    m_window->setProperty(CONTROLLER_PROPERTY, QVariant());
    m_window->deleteLater();
    m_window = nullptr;
}

void WindowController::showWindow()
{
    if (!m_window)
        return;
    if (m_window->isMinimized())
        m_window->setWindowState(m_window->windowState() & ~Qt::WindowMinimized);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void WindowController::close()
{
    while (QDialog *sheet = attachedSheet(m_window))
        sheet->done(SHEET_STOP);
    if (m_window)
        m_window->close();
}

bool WindowController::validateMenuItem(QAction *)
{
    return true;
}

void WindowController::performClose(QObject *)
{
    close();
}

void WindowController::performMiniaturize(QObject *)
{
    if (m_window)
        m_window->showMinimized();
}

void WindowController::beginSheet(QDialog *sheet, std::function<void(int)> handler)
{
    if (m_window && sheet->parentWidget() != m_window)
        sheet->setParent(m_window);
    sheet->setWindowFlags(Qt::Sheet);
    sheet->setWindowModality(Qt::WindowModal);
    // Window managers do not all give the keyboard back when one sheet ends upon another.
    connect(
        sheet, &QDialog::finished, this,
        [this] {
            const bool active = QGuiApplication::applicationState() == Qt::ApplicationActive;
            if (active && m_window && m_window->isVisible() && !attachedSheet(m_window))
                m_window->activateWindow();
        },
        Qt::SingleShotConnection);
    if (handler)
        connect(sheet, &QDialog::finished, this, std::move(handler), Qt::SingleShotConnection);
    sheet->open();
}

QDialog *WindowController::attachedSheet(const QWidget *window)
{
    if (!window)
        return nullptr;
    const auto dialogs = window->findChildren<QDialog *>(QString(), Qt::FindDirectChildrenOnly);
    for (QDialog *dialog : dialogs)
        if (dialog->isVisible() && dialog->windowModality() == Qt::WindowModal)
            return dialog;
    return nullptr;
}

QWidget *WindowController::keyWindow()
{
    QWidget *window = QApplication::activeWindow();
    if (!window)
        window = lastKeyWindow();
    if (!window || !window->isVisible())
        return nullptr;
    // A sheet that was just shown may not have the keyboard yet.
    while (QDialog *sheet = attachedSheet(window))
        window = sheet;
    return window;
}

void WindowController::setExcludedFromWindowsMenu(bool excluded)
{
    if (m_window)
        m_window->setProperty(MainMenu::EXCLUDED_FROM_WINDOWS_PROPERTY, excluded);
}

// A window manager may give the keyboard to a window that was clicked although its sheet blocks it.
void WindowController::giveKeysToSheet()
{
    QDialog *top = attachedSheet(m_window);
    while (QDialog *sheet = attachedSheet(top))
        top = sheet;
    if (top)
        QMetaObject::invokeMethod(
            top, [top] { top->activateWindow(); }, Qt::QueuedConnection);
}

// Return presses the button that has the focus, as in a dialog. Keys come to the window when none
// of its widgets wanted them.
bool WindowController::pressFocusedButton(const QKeyEvent *event)
{
    auto *button = qobject_cast<QAbstractButton *>(m_window->focusWidget());
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!button || !isReturn || qobject_cast<QDialog *>(m_window))
        return false;
    if (!event->isAutoRepeat())
        button->click();
    return true;
}

bool WindowController::eventFilter(QObject *object, QEvent *event)
{
    if (object != m_window)
        return QObject::eventFilter(object, event);
    switch (event->type()) {
    case QEvent::Close:
        if (!windowShouldClose()) {
            event->ignore();
            return true;
        }
        NotificationCenter::defaultCenter().post(WINDOW_WILL_CLOSE,
                                                 QVariant::fromValue<QWidget *>(m_window.data()));
        windowWillClose();
        break;
    case QEvent::WindowActivate:
        lastKeyWindow() = m_window;
        giveKeysToSheet();
        windowDidBecomeKey();
        break;
    case QEvent::WindowDeactivate:
        windowDidResignKey();
        break;
    case QEvent::Resize:
        windowDidResize();
        break;
    case QEvent::KeyPress:
        return pressFocusedButton(static_cast<QKeyEvent *>(event));
    default:
        break;
    }
    return false;
}
