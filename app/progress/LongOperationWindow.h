// The window of the progress sheet.
#pragma once

#include <QDialog>

// Can always become the key window. Escape ends it with code 0.
class LongOperationWindow : public QDialog
{
    Q_OBJECT

public:
    explicit LongOperationWindow(QWidget *parent = nullptr);

    Q_INVOKABLE bool canBecomeKeyWindow() const { return true; }

protected:
    void showEvent(QShowEvent *event) override;
};
