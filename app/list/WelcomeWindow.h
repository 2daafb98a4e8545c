// The window of the VM list.
#pragma once

#include <QMainWindow>

class QAction;

// Can always be the key and the main window, and moves when its background is dragged.
class WelcomeWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit WelcomeWindow(QWidget *parent = nullptr);

    Q_INVOKABLE bool canBecomeKeyWindow() const { return true; }
    Q_INVOKABLE bool canBecomeMainWindow() const { return true; }
    // "performClose:" is always enabled; any other item when the window can perform its action.
    Q_INVOKABLE bool validateMenuItem(QAction *item) const;
    // Closes the window at once: nothing is asked and no close button is needed.
    Q_INVOKABLE void performClose(QObject *sender = nullptr);

Q_SIGNALS:
    // Escape, with the focus anywhere but in a text.
    void escapePressed();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
};
