// The context menu of the VM list, and the buttons that do the same.
#pragma once

#include <QAction>
#include <QList>
#include <QObject>
#include <QPushButton>
#include <QTimer>

class QMenu;

// Items and buttons carry the name of an action (see Responder.h) and are enabled as the window's
// responders validate it: items when the menu opens, buttons after each look.
class ListMenu : public QObject
{
    Q_OBJECT

public:
    // The buttons of a window, each with the property of its action.
    ListMenu(QWidget *window, const QList<QPushButton *> &buttons);

    // Performs an action of the menu, if it can be used now.
    void perform(const QString &action);
    // Whether an action of the menu can be used now.
    bool validates(const QString &action) const;
    // At a place on the screen.
    void popUp(const QPoint &position);
    // Looks soon whether the buttons can be used: many changes of rows are one look.
    void lookAtButtonsSoon();

private:
    void addItems();
    void lookAtButtons();
    QAction *itemFor(const QString &action) const; // null when the menu has none

    QWidget *m_window;
    QMenu *m_menu;
    QList<QPushButton *> m_buttons;
    QTimer m_lookDue;
};
