// One VM whose supervisor this process started and looks after.
#pragma once

#include "platform/child.h"
#include "platform/unique_fd.h"
#include "tarvhv/cli2/start_mode.h"

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <functional>
#include <memory>
#include <string>

// A supervisor as data: what is run for a VM.
struct SupervisorLaunch
{
    std::string program;
    std::string id;
    StartMode mode = StartMode::normal;
    int log_fd = -1;
};

//   starting --(first screen can be opened)--> running --(supervisor ended)--> ended
//   starting --(supervisor ended)--> ended
class HostedMachine : public QObject
{
    Q_OBJECT

public:
    // Null with errno set. The supervisor ends when this process or thread does.
    static std::unique_ptr<HostedMachine> start(const SupervisorLaunch &launch);
    ~HostedMachine() override;

    const std::string &id() const { return m_id; }
    // Asks the supervisor to end its VM; ended() follows.
    void end();

Q_SIGNALS:
    void started();
    // Its exit status was not 0, or a signal ended it. The last signal.
    void ended(bool failed);

private:
    HostedMachine(const std::string &id, Child child);
    void tryScreen();
    void reap();

    std::string m_id;
    Child m_child; // without a pid once it has ended
    QSocketNotifier m_ended;
    QTimer m_again;
};
