// The progress sheet that is shown while a command of the controller runs.
#pragma once

#include "app/kit/WindowController.h"

#include <QString>

#include <memory>

namespace Ui {
class LongRunningOperationWindowController;
}
class LongOperationWindow;
class ProgressIndicator;

// Ends with SHEET_CONTINUE when the command is to run on without it, with 0 when it is to be
// cancelled; whoever shows it acts on that.
class LongRunningOperationWindowController : public WindowController
{
    Q_OBJECT

public:
    // A new one; the caller owns it.
    static LongRunningOperationWindowController *controller();
    ~LongRunningOperationWindowController() override;

    LongOperationWindow *sheet() const;
    ProgressIndicator *progressIndicator() const;

    // What is being done, for example "Stopping ...".
    QString title() const;
    void setTitle(const QString &title);
    // Percent. The first value above 0 turns the spinner into a bar; others are ignored.
    void setProgress(double percent);

    Q_INVOKABLE void background(QObject *sender = nullptr);
    Q_INVOKABLE void cancelOperation(QObject *sender = nullptr);

private:
    LongRunningOperationWindowController();
    void windowDidLoad();

    std::unique_ptr<Ui::LongRunningOperationWindowController> m_ui;
};
