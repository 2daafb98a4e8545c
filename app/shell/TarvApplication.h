// The application object: keys of display windows go to the guest, quitting asks the delegate.
#pragma once

#include <QApplication>
#include <QPointer>

class AppDelegate;
class QKeyEvent;
class QWindow;

class TarvApplication : public QApplication
{
    Q_OBJECT

public:
    TarvApplication(int &argc, char **argv);

    // Who decides about quitting, and has the application's actions.
    void setDelegate(AppDelegate *delegate);

    // Return and Escape count once however long they are held, but for the guest. A key with
    // modifiers on a display window without a sheet does not reach shortcuts: it goes to the
    // window. Paste is performed before it and Copy 200 ms after it, on press and release.
    bool notify(QObject *receiver, QEvent *event) override;

protected:
    bool event(QEvent *event) override;

private:
    QPointer<AppDelegate> m_delegate;

    bool sendToGuest(QWidget *window, QWindow *receiver, QKeyEvent *event);
};
