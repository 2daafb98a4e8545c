#include "app/kit/Responder.h"

#include "app/kit/WindowController.h"

#include <QLineEdit>
#include <QMetaMethod>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTextEdit>

namespace {

QPointer<QObject> g_delegate;

QByteArray methodName(const QString &action)
{
    QByteArray name = action.toLatin1();
    if (name.endsWith(':'))
        name.chop(1);
    return name == "delete" ? QByteArrayLiteral("delete_") : name;
}

int methodIndex(const QObject *object, const QString &action)
{
    const QByteArray name = methodName(action);
    if (!object || name.isEmpty())
        return -1;
    const int index = object->metaObject()->indexOfMethod(name + "(QObject*)");
    return index >= 0 ? index : object->metaObject()->indexOfMethod(name + "()");
}

template <class Edit>
bool canEdit(const Edit *edit, const QByteArray &name)
{
    const bool writable = !edit->isReadOnly();
    const QTextCursor cursor = edit->textCursor();
    if (name == "undo")
        return writable && edit->document()->isUndoAvailable();
    if (name == "redo")
        return writable && edit->document()->isRedoAvailable();
    if (name == "cut")
        return writable && cursor.hasSelection();
    if (name == "copy")
        return cursor.hasSelection();
    return name != "paste" || writable;
}

bool canEditLine(const QLineEdit *edit, const QByteArray &name)
{
    const bool writable = !edit->isReadOnly();
    const bool readable = edit->hasSelectedText() && edit->echoMode() == QLineEdit::Normal;
    if (name == "undo")
        return writable && edit->isUndoAvailable();
    if (name == "redo")
        return writable && edit->isRedoAvailable();
    if (name == "cut")
        return writable && readable;
    if (name == "copy")
        return readable;
    return name != "paste" || writable;
}

// Qt's text widgets have the standard editing actions but do not say when they can be used. What is
// on the pasteboard is not asked for: the program that it comes from may not answer.
bool widgetAllows(const QObject *object, const QByteArray &name)
{
    if (const auto *line = qobject_cast<const QLineEdit *>(object))
        return canEditLine(line, name);
    if (const auto *text = qobject_cast<const QTextEdit *>(object))
        return canEdit(text, name);
    if (const auto *plain = qobject_cast<const QPlainTextEdit *>(object))
        return canEdit(plain, name);
    return true;
}

} // namespace

QString Responder::actionOf(const QAction *item)
{
    return item ? item->property(ACTION_PROPERTY).toString() : QString();
}

void Responder::setApplicationDelegate(QObject *delegate)
{
    g_delegate = delegate;
}

QObject *Responder::applicationDelegate()
{
    return g_delegate;
}

bool Responder::hasAction(const QObject *object, const QString &action)
{
    return methodIndex(object, action) >= 0;
}

QObject *Responder::target(QWidget *window, const QString &action)
{
    if (window) {
        QWidget *first = window->focusWidget();
        for (QWidget *widget = first ? first : window; widget; widget = widget->parentWidget()) {
            if (hasAction(widget, action))
                return widget;
            if (widget == window)
                break;
        }
        if (auto *controller = WindowController::forWindow(window); hasAction(controller, action))
            return controller;
    }
    return hasAction(g_delegate, action) ? g_delegate.data() : nullptr;
}

bool Responder::validate(QWidget *window, QAction *item)
{
    const QString action = actionOf(item);
    QObject *object = target(window, action);
    if (!object)
        return false;
    if (!widgetAllows(object, methodName(action)))
        return false;
    // A window may leave the answer to its controller.
    if (object->isWidgetType() &&
        object->metaObject()->indexOfMethod("validateMenuItem(QAction*)") < 0) {
        auto *controller = WindowController::forWindow(window);
        return !controller || object != window || controller->validateMenuItem(item);
    }
    bool allowed = true;
    if (object->metaObject()->indexOfMethod("validateMenuItem(QAction*)") >= 0)
        QMetaObject::invokeMethod(object, "validateMenuItem", Qt::DirectConnection,
                                  Q_RETURN_ARG(bool, allowed), Q_ARG(QAction *, item));
    return allowed;
}

bool Responder::tryToPerform(QObject *object, const QString &action, QObject *sender)
{
    const int index = methodIndex(object, action);
    if (index < 0)
        return false;
    const QMetaMethod method = object->metaObject()->method(index);
    return method.parameterCount() == 0
               ? method.invoke(object, Qt::DirectConnection)
               : method.invoke(object, Qt::DirectConnection, Q_ARG(QObject *, sender));
}

bool Responder::perform(QWidget *window, QAction *item)
{
    if (!validate(window, item))
        return false;
    const QString action = actionOf(item);
    return tryToPerform(target(window, action), action, item);
}
