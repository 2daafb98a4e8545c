#include "app/shell/Termination.h"

#include "app/kit/Alert.h"
#include "app/kit/NotificationCenter.h"
#include "app/kit/SheetCodes.h"
#include "app/model/ControllerRun.h"
#include "app/shell/AppParts.h"

#include <QApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <utility>

namespace {

// Longer than a supervisor tries to end its VM; what is left then ends with this process.
constexpr std::chrono::seconds END_WAIT{12};

bool isAnyWindowShown()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.begin(), windows.end(), [](const QWidget *window) {
        const bool passing = window->windowType() == Qt::ToolTip;
        return window->isVisible() && !passing;
    });
}

} // namespace

Termination::Termination(const AppParts &parts, std::function<bool()> isOpening, QObject *parent)
    : QObject(parent), m_parts(parts), m_isOpening(std::move(isOpening))
{
    NotificationCenter::defaultCenter().addObserver(
        this, CONTROLLER_RUN_DID_END, [this](const Notification &) { somethingDidEnd(); });
}

Termination::~Termination()
{
    delete m_question;
}

bool Termination::isAgreedByUser()
{
    const unsigned running = m_parts.runningVMs();
    if (running == 0)
        return true;
    QString message = tr("%d VM(s) are running. Do you want to quit and terminate them?");
    message.replace(QLatin1String("%d"), QString::number(running));
    Alert alert(message);
    alert.addButton(tr("Cancel")).addButton(tr("Quit Tarv"));
    return alert.runModal() == ALERT_FIRST_BUTTON + 1;
}

bool Termination::isIdle() const
{
    return m_parts.runningVMs() == 0 && (m_leavesCommands || ControllerRun::underWay() == 0);
}

bool Termination::request()
{
    if (m_state == State::waiting && !m_question)
        waitForCommands(); // its question went with the window that it stood on
    if (m_state != State::none)
        return m_state != State::asked;
    m_state = State::asked;
    const bool agreed = isAgreedByUser();
    if (m_state == State::agreed)
        return true; // told so while the question was open
    m_state = State::none;
    if (!agreed)
        return false;
    ControllerRun::underWay() == 0 ? now() : waitForCommands();
    return true;
}

void Termination::waitForCommands()
{
    m_state = State::waiting;
    const auto count = int(ControllerRun::underWay());
    Alert alert(count == 1 ? tr("Tarv quits when the command that is running has finished.")
                           : tr("Tarv quits when %n commands have finished.", nullptr, count));
    alert.setInformativeText(tr("A command that is left to itself runs on."));
    alert.addButton(tr("Quit Now")).addButton(tr("Cancel"));
    m_question = alert.begin([this](int result) {
        if (m_state != State::waiting)
            return;
        m_state = State::none;
        m_leavesCommands = result == ALERT_FIRST_BUTTON;
        if (m_leavesCommands)
            now();
    });
}

void Termination::now()
{
    if (std::exchange(m_state, State::agreed) == State::agreed || isIdle()) {
        m_parts.exit();
        return;
    }
    // A start from here on is a first one: this application opens nothing any more.
    if (m_instance)
        m_instance->release();
    m_parts.endVMs();
    QTimer::singleShot(END_WAIT, this, [this] { m_parts.exit(); });
}

void Termination::lastWindowDidClose()
{
    m_lastWindowClosed = true;
    endIfNothingIsLeft();
}

void Termination::somethingDidEnd()
{
    if (m_state == State::agreed) {
        if (isIdle())
            m_parts.exit();
    } else if (m_state == State::waiting) {
        if (ControllerRun::underWay() == 0)
            now();
    } else {
        endIfNothingIsLeft();
    }
}

// A VM or a command that outlives the last window keeps the application; its end is then the end of
// both. An alert that tells of a failure counts as a window.
void Termination::endIfNothingIsLeft()
{
    if (m_state == State::none && m_lastWindowClosed && isIdle() && !isAnyWindowShown() &&
        !m_isOpening())
        now();
}
