// The host's keyboard, taken for a view: its window gets the keys of the desktop, too.
#pragma once

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QWidget>

class QKeyEvent;

// While it is locked and the view has the focus, the window system gives every key to the view's
// window: on X11 by a grab, elsewhere not at all. Menus, sheets and alerts take the focus, and the
// keyboard is given back to them.
//
// Control and Alt, pressed and released together without another key, are the way out. Where they
// free the keyboard it stays free until the window is activated anew or the view is clicked. The
// guest gets both keys all the same.
class KeyboardGrab : public QObject
{
    Q_OBJECT

public:
    explicit KeyboardGrab(QWidget *view);
    ~KeyboardGrab() override;

    // The user's wish.
    void setLocked(bool locked);
    bool isHeld() const { return m_held; }
    // The keys that are down now have freed something else, and are no way out any more.
    void disarm() { m_armed = false; }

Q_SIGNALS:
    void heldChanged(bool held);
    // The way out was pressed while the keyboard was not held.
    void wayOutPressed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void update();
    void hold(bool held);
    void keyPressed(const QKeyEvent &event);
    void keyReleased(const QKeyEvent &event);

    QPointer<QWidget> m_view;
    QPointer<QWindow> m_window; // that the keyboard was taken for
    bool m_locked = false;
    bool m_freed = false; // by the way out
    bool m_held = false;
    bool m_armed = false; // the way out is down, and nothing else was pressed since
    QSet<int> m_down;     // Qt::Key
};
