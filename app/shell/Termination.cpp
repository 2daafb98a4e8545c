#include "app/shell/Termination.h"

#include "app/kit/Alert.h"
#include "app/kit/SheetCodes.h"
#include "app/shell/AppParts.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <utility>

namespace {

// Longer than a supervisor tries to end its VM; what is left then ends with this process.
constexpr std::chrono::seconds END_WAIT{12};

} // namespace

Termination::Termination(const AppParts &parts, QObject *parent) : QObject(parent), m_parts(parts)
{
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

bool Termination::request()
{
    if (m_state != State::none)
        return m_state == State::agreed;
    m_state = State::asked;
    const bool agreed = isAgreedByUser();
    if (m_state == State::agreed)
        return true; // told so while the question was open
    m_state = State::none;
    if (agreed)
        now();
    return agreed;
}

void Termination::now()
{
    if (std::exchange(m_state, State::agreed) == State::agreed || m_parts.runningVMs() == 0) {
        QCoreApplication::exit(0);
        return;
    }
    // A start from here on is a first one: this application opens nothing any more.
    if (m_instance)
        m_instance->release();
    m_parts.endVMs();
    QTimer::singleShot(END_WAIT, this, [] { QCoreApplication::exit(0); });
}

void Termination::virtualMachineDidStop()
{
    if (m_state == State::agreed && m_parts.runningVMs() == 0)
        QCoreApplication::exit(0);
}
