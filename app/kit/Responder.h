// Actions by name: finding the object that has one, and performing it.
//
// An action is a name such as "copy:". An object has it when its meta-object knows an invokable
// method copy(QObject *sender), or, for Qt's own widgets, copy() ("delete:" is delete_). Who may
// have it, in order: the focus widget of the window and its ancestors, the window's controller, the
// application delegate.
#pragma once

#include <QAction>
#include <QObject>
#include <QString>
#include <QWidget>

namespace Responder {

// The property of a QAction that holds its action's name.
inline constexpr char ACTION_PROPERTY[] = "action";
QString actionOf(const QAction *item);

void setApplicationDelegate(QObject *delegate);
QObject *applicationDelegate();

bool hasAction(const QObject *object, const QString &action);
// The first responder of a window (may be null) that has the action; null when none has.
QObject *target(QWidget *window, const QString &action);
// Whether a menu item can be used now: some responder has its action and, where it has an invokable
// bool validateMenuItem(QAction *), says so.
bool validate(QWidget *window, QAction *item);
// Calls the action of one object with a sender; false when it has none.
bool tryToPerform(QObject *object, const QString &action, QObject *sender);
// The same with the first responder of a window, if it validates the item.
bool perform(QWidget *window, QAction *item);

} // namespace Responder
