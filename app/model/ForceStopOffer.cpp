#include "app/model/ForceStopOffer.h"

#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"
#include "tarvhv/cli2/exit_status.h"

#include <QCoreApplication>
#include <QPointer>

#include <utility>

namespace {

QString localised(const char *text)
{
    return QCoreApplication::translate("ForceStopOffer", text);
}

void ask(WindowController *window, const QString &message, const std::function<void()> &forceStop)
{
    Alert alert(message);
    // Waiting comes first: Return must not pull the plug of a guest that is busy writing.
    alert.addHarmlessButton(localised(QT_TRANSLATE_NOOP("ForceStopOffer", "Wait")))
        .addButton(localised(QT_TRANSLATE_NOOP("ForceStopOffer", "Force Stop")));
    const auto answered = [forceStop](int result) {
        if (result == ALERT_FIRST_BUTTON + 1)
            forceStop();
    };
    if (window && window->window())
        alert.beginSheet(window->window(), answered);
    else
        alert.begin(answered);
}

} // namespace

TarvCTL::FailurePresenter forceStopOffer(WindowController *window, std::function<void()> forceStop)
{
    return [window = QPointer(window), forceStop = std::move(forceStop)](const TarvError &error) {
        if (error.code != EXIT_GUEST_STAYS_ON)
            return false;
        // Once the progress sheet is gone, so that the question stands on the window itself.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [window, forceStop, message = error.description] { ask(window, message, forceStop); },
            Qt::QueuedConnection);
        return true;
    };
}
