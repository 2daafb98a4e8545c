// How the application ends: asked, told, or because nothing is left to show.
#pragma once

#include "app/shell/SingleInstance.h"

#include <QMessageBox>
#include <QObject>
#include <QPointer>

#include <functional>

struct AppParts;

// Nothing that was begun is cut off by a quit. Commands of the controller are waited for, or left
// to run on by themselves if the user prefers that; VMs in the application's care end with it, and
// are told first.
//
//   state    what is going on                              ends the application
//   none     the application runs                          its last window closed, nothing under
//   way asked    the user is asked about VMs                   - waiting  commands run to their
//   end; can be cancelled   the end of the last command agreed   VMs and commands are ending the
//   last end, or END_WAIT, or a second now()
class Termination : public QObject
{
    Q_OBJECT

public:
    // The parts outlive this. `isOpening` tells whether a window is about to come.
    Termination(const AppParts &parts, std::function<bool()> isOpening, QObject *parent = nullptr);
    ~Termination() override;

    // Whose name on the session bus is given up when the end is certain (may be null).
    void setInstance(SingleInstance *instance) { m_instance = instance; }

    // Asks the user where VMs would end with the application; true otherwise.
    bool isAgreedByUser();
    // Ends the application, if the user agrees; whether it is going to end.
    bool request();
    // The same without asking. The second time it waits for nothing.
    void now();

    // The last window closed: the application ends as soon as nothing is under way.
    void lastWindowDidClose();
    // A VM in the application's care, or a command, has ended.
    void somethingDidEnd();

private:
    enum class State
    {
        none,
        asked,
        waiting,
        agreed
    };

    bool isIdle() const;
    void waitForCommands();
    void endIfNothingIsLeft();

    const AppParts &m_parts;
    const std::function<bool()> m_isOpening;
    QPointer<SingleInstance> m_instance;
    QPointer<QMessageBox> m_question; // while waiting
    State m_state = State::none;
    bool m_leavesCommands = false;
    bool m_lastWindowClosed = false;
};
