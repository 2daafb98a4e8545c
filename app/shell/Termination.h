// How the application ends: asked, told, or because nothing is left to show.
#pragma once

#include "app/shell/SingleInstance.h"

#include <QObject>
#include <QPointer>

struct AppParts;

// The VMs in the application's care end with it. They are told first and are waited for, but not
// for ever.
class Termination : public QObject
{
    Q_OBJECT

public:
    // The parts outlive this.
    explicit Termination(const AppParts &parts, QObject *parent = nullptr);

    // Whose name on the session bus is given up when the end is certain (may be null).
    void setInstance(SingleInstance *instance) { m_instance = instance; }

    // Asks the user where VMs would end with the application; true otherwise.
    bool isAgreedByUser();
    // Ends the application, if the user agrees; whether it does. While the question is open, a
    // further request is refused.
    bool request();
    // The same without asking. The second time it waits for nothing.
    void now();
    // A VM in the application's care has ended.
    void virtualMachineDidStop();

private:
    enum class State
    {
        none,
        asked, // the user has yet to answer
        agreed // VMs are ending
    };

    const AppParts &m_parts;
    QPointer<SingleInstance> m_instance;
    State m_state = State::none;
};
