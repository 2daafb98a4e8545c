#include "app/shell/TarvApplication.h"

#include "app/display/TarvWindow.h"
#include "app/kit/MainMenu.h"
#include "app/kit/MenuItemForEvent.h"
#include "app/kit/Responder.h"
#include "app/kit/WindowController.h"
#include "app/shell/AppDelegate.h"
#include "tarvhv/display/TarvDisplayView.h"

#include <QIcon>
#include <QKeyEvent>
#include <QTimer>
#include <QWindow>

// A static library's resources are not found without this; it must stand outside any namespace.
static void initResources()
{
    Q_INIT_RESOURCE(tarv);
}

namespace {

// The guest must have copied before the host reads its pasteboard.
constexpr int COPY_DELAY_MS = 200;

QWidget *displayWindowOf(const QWindow *receiver)
{
    for (QWidget *widget : QApplication::topLevelWidgets())
        if (widget->windowHandle() == receiver)
            return qobject_cast<TarvWindow *>(widget);
    return nullptr;
}

bool isModifierKey(int key)
{
    switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
        return true;
    default:
        return false;
    }
}

// A modifier by itself counts too: the menu bar would take Alt for its own.
bool isModified(const QKeyEvent *event)
{
    return event->modifiers() != Qt::NoModifier || isModifierKey(event->key());
}

// Keys that press a button. Held down, they would go on to answer the next question, or start what
// the focus comes to next.
bool isAnswerKey(int key)
{
    return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Escape;
}

} // namespace

TarvApplication::TarvApplication(int &argc, char **argv) : QApplication(argc, argv)
{
    initResources();
    setOrganizationName(QStringLiteral("Quelda"));
    setApplicationName(QStringLiteral("Tarv"));
    setApplicationVersion(QStringLiteral(TARV_VERSION));
    setDesktopFileName(QStringLiteral("com.quelda.Tarv"));
    setWindowIcon(QIcon(QStringLiteral(":/tarv/com.quelda.Tarv.svg")));
    setQuitOnLastWindowClosed(false);
}

void TarvApplication::setDelegate(AppDelegate *delegate)
{
    m_delegate = delegate;
    Responder::setApplicationDelegate(delegate);
    connect(this, &QGuiApplication::lastWindowClosed, delegate, &AppDelegate::lastWindowDidClose);
}

bool TarvApplication::notify(QObject *receiver, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::ShortcutOverride && type != QEvent::KeyPress && type != QEvent::KeyRelease)
        return QApplication::notify(receiver, event);
    // Key events come to the window first, which then gives them to its focus widget.
    auto *window = qobject_cast<QWindow *>(receiver);
    auto *key = static_cast<QKeyEvent *>(event);
    QWidget *display = window ? displayWindowOf(window) : nullptr;
    if (display && WindowController::attachedSheet(display))
        display = nullptr;
    if (!display && window && key->isAutoRepeat() && isAnswerKey(key->key())) {
        event->accept();
        return true;
    }
    if (!display || !isModified(key))
        return QApplication::notify(receiver, event);
    if (type == QEvent::ShortcutOverride) {
        event->accept();
        return true;
    }
    return sendToGuest(display, window, key);
}

bool TarvApplication::sendToGuest(QWidget *window, QWindow *receiver, QKeyEvent *event)
{
    QAction *item = NSMenuItemForEvent(MainMenu::of(window), event);
    const QString action =
        Responder::validate(window, item) ? Responder::actionOf(item) : QString();
    const QPointer<WindowController> target(WindowController::forWindow(window));
    if (action == QLatin1String("paste:"))
        Responder::tryToPerform(target, action, item);
    const bool delivered = QApplication::notify(receiver, event);
    if (action == QLatin1String("copy:") && target)
        QTimer::singleShot(COPY_DELAY_MS, Qt::PreciseTimer, target,
                           [target, action, item = QPointer<QAction>(item)] {
                               Responder::tryToPerform(target, action, item);
                           });
    return delivered;
}

bool TarvApplication::event(QEvent *event)
{
    if (event->type() != QEvent::Quit || !m_delegate)
        return QApplication::event(event);
    // The desktop session or a platform's own menu asks to quit.
    event->setAccepted(m_delegate->requestTermination());
    return true;
}
