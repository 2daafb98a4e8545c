// The owner of one window: its life, its sheets and what the menu may do with it.
#pragma once

#include <QAction>
#include <QDialog>
#include <QObject>
#include <QPointer>
#include <QWidget>

#include <functional>

class QKeyEvent;

// Posted when a window is about to close, before its controller is told; the object is the window
// (a QWidget *).
inline const QString WINDOW_WILL_CLOSE = QStringLiteral("WindowWillClose");

// For owners that let go of a controller while its window may still be in the middle of an event.
struct DeleteLater
{
    void operator()(QObject *object) const { object->deleteLater(); }
};

class WindowController : public QObject
{
    Q_OBJECT

public:
    explicit WindowController(QObject *parent = nullptr);
    // Deletes the window.
    ~WindowController() override;

    QWidget *window() const { return m_window; }
    // The controller of a window, or null.
    static WindowController *forWindow(const QWidget *window);

    // Shows the window, or brings it to the front.
    virtual void showWindow();
    // Closes the window, also under a sheet (which then ends with SHEET_STOP).
    void close();

    // Whether a menu item can be used now; may set its check mark. An item that this window does
    // not handle is never asked about.
    Q_INVOKABLE virtual bool validateMenuItem(QAction *item);
    // The standard actions of every window.
    Q_INVOKABLE virtual void performClose(QObject *sender);
    Q_INVOKABLE void performMiniaturize(QObject *sender);

    // Shows a dialog as a sheet on this window; it ends with done(code). The handler is called once
    // with that code, unless this controller is gone by then. The caller keeps owning the dialog;
    // without a parent of its own it becomes a child of the window.
    void beginSheet(QDialog *sheet, std::function<void(int code)> handler);
    // The sheet that a window shows, or null.
    static QDialog *attachedSheet(const QWidget *window);

    // The window that has the keyboard. While none has it, such as between the end of a sheet and
    // the return of the focus, the last of a controller that had it; null when that is gone too.
    static QWidget *keyWindow();

    // A window that the menu of windows leaves out.
    void setExcludedFromWindowsMenu(bool excluded);

protected:
    // Takes the window over. Once, in the constructor or before the first use.
    void setWindow(QWidget *window);
    // Parts from the window, which is deleted on the next turn of the loop.
    void detachWindow();

    virtual bool windowShouldClose() { return true; }
    virtual void windowWillClose() {}
    virtual void windowDidBecomeKey() {}
    virtual void windowDidResignKey() {}
    virtual void windowDidResize() {}

    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void giveKeysToSheet();
    bool pressFocusedButton(const QKeyEvent *event);

    QPointer<QWidget> m_window;
};
