// The window that shows the agreement and takes its acceptance.
#pragma once

#include "app/kit/BackgroundWork.h"
#include "app/kit/WindowController.h"
#include "app/model/TarvCTL.h"

#include <functional>
#include <memory>

namespace Ui {
class EULAWindowController;
}

class EULAWindowController : public WindowController
{
    Q_OBJECT

public:
    // How the agreement is accepted; runs off the main thread.
    using Accept = std::function<bool(TarvError *error)>;

    // Shows the agreement of the support folder.
    EULAWindowController();
    EULAWindowController(const QString &agreementPath, Accept accept);
    ~EULAWindowController() override;

    // Accepts; then closes the window, or shows the error as a sheet on it.
    Q_INVOKABLE void acceptEULA(QObject *sender);

private:
    std::unique_ptr<Ui::EULAWindowController> m_ui;
    Accept m_accept;
    BackgroundWork m_work;

    void accepted(bool success, const TarvError &error);
};
