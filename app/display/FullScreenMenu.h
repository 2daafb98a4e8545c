// The menu bar of a window in full screen: over the picture, while it is wanted.
#pragma once

#include "app/display/displaygeometry.h"

#include <QMainWindow>
#include <QMenuBar>
#include <QObject>
#include <QPointer>

// Takes the menu bar out of the window's layout for as long as it lives, so that the guest's
// picture has the whole window and does not move when the menu comes. Where the options hide the
// menu bar the pointer does not call it, and reveal() alone shows it.
class FullScreenMenu : public QObject
{
    Q_OBJECT

public:
    FullScreenMenu(QMainWindow *window, QMenuBar *menu, PresentationOptions options);
    ~FullScreenMenu() override;

    void reveal();
    // The window's size changed.
    void place();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void hide();
    void pointerMoved(QPoint inWindow);

    QMainWindow *m_window;
    QPointer<QMenuBar> m_menu;
    bool m_followsPointer;
};
