// The engine with all that is connected to it: its process, its monitor, the screens and the
// pasteboard of its guest. It is brought up to a machine that is halted before its first
// instruction; what happens to it then is the supervisor's to say.
#pragma once

#include "services/engine/launch.h"
#include "services/failure.h"
#include "services/loop/event.h"
#include "services/tarvvm/machine/engine_process.h"
#include "services/tarvvm/machine/migration.h"
#include "services/tarvvm/machine/qmp.h"
#include "services/tarvvm/machine/vm_log.h"
#include "services/tarvvm/pasteboard/guest_pasteboard.h"
#include "services/tarvvm/screens/display_server.h"

#include <functional>
#include <memory>
#include <string>

class Engine
{
public:
    struct Handlers
    {
        // Once: the machine is there with its screens, and waits for a saved state or for go().
        std::function<void()> ready;
        // What was asked of the engine came to nothing, so the machine is of no use.
        std::function<void(const std::string &message)> failed;
        std::function<void(const std::string &name, const json *data)> event;
        // Once: the monitor is closed. As a rule the engine is ending.
        std::function<void(const std::string &reason)> closed;
        // Once, after its last words and all that its monitor had said.
        std::function<void(const EngineEnd &end)> ended;
    };
    enum class Begin
    {
        cold,
        saved // the machine waits for a saved state
    };

    // `machine` outlives the engine.
    Engine(sd_event *loop, const Machine &machine, VmLog &log, Handlers handlers);
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    ServiceFailure start(const EngineHost &host, StartMode mode, Begin begin);
    // Lets the guest run: `running` is called when it does, `failed` when it can't.
    void go(std::function<void()> running);
    // The guest is connected to the screens of a saved state that was loaded.
    void keepSizes() { m_displays->keepSizes(); }

    EngineProcess &process() { return *m_process; }
    Qmp &qmp() { return *m_qmp; }
    Migration &migration() { return *m_migration; }
    // Null until the machine is there.
    DisplayServer *displays() { return m_displays.get(); }

private:
    Qmp::Handlers monitorHandlers();
    void connectScreens();
    void onScreens(const ServiceFailure &failure);
    void unplugCables();

    sd_event *m_loop;
    const Machine &m_machine;
    VmLog &m_log;
    Handlers m_handlers;
    Begin m_begin = Begin::cold;
    std::unique_ptr<EngineProcess> m_process;
    std::unique_ptr<Qmp> m_qmp;
    std::unique_ptr<GuestPasteboard> m_pasteboard; // outlives the screens' viewers
    std::unique_ptr<DisplayServer> m_displays;
    std::unique_ptr<Migration> m_migration;
};
