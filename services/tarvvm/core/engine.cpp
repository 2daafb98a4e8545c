#include "services/tarvvm/core/engine.h"

#include <fcntl.h>
#include <utility>
#include <vector>

Engine::Engine(sd_event *loop, const Machine &machine, VmLog &log, Handlers handlers)
    : m_loop(loop), m_machine(machine), m_log(log), m_handlers(std::move(handlers))
{
}

ServiceFailure Engine::start(const EngineHost &host, StartMode mode, Begin begin)
{
    m_begin = begin;
    EngineProcess::Channels channels;
    if (!channels.make())
        return ServiceFailure::of("the engine's channels");
    const LaunchOptions options{mode, channels.engine_monitor.get(), channels.engine_console.get(),
                                channels.engine_agent.get(), begin == Begin::saved};
    UniqueFd agent_unread(fcntl(channels.engine_agent.get(), F_DUPFD_CLOEXEC, 0));
    const Launch launch = engine_launch(m_machine, host, options);
    m_log.line("starting " + engine_launch_line(launch));
    m_process =
        EngineProcess::start(m_loop, launch, &channels, m_log, [this](const EngineEnd &end) {
            m_qmp->drain();
            m_handlers.ended(end);
        });
    if (!m_process)
        return ServiceFailure::of(launch.program);
    m_qmp = std::make_unique<Qmp>(m_loop, std::move(channels.monitor), monitorHandlers());
    m_pasteboard = std::make_unique<GuestPasteboard>(
        m_loop, std::move(channels.agent), std::move(agent_unread),
        [this](const std::string &line) { m_log.line(line); });
    m_migration = std::make_unique<Migration>(m_loop, *m_qmp);
    return {};
}

Qmp::Handlers Engine::monitorHandlers()
{
    Qmp::Handlers handlers;
    handlers.ready = [this] { connectScreens(); };
    handlers.event = [this](const std::string &name, const json *data) {
        if (name == "VSERPORT_CHANGE") // the only port
            m_pasteboard->setPortOpen(json_find_bool(data, "open", false));
        else
            m_handlers.event(name, data);
    };
    handlers.closed = [this](const std::string &reason) { m_handlers.closed(reason); };
    return handlers;
}

// The screens come first: QEMU tells of a screen's size only once, and a saved state that is read
// later brings sizes of its own.
void Engine::connectScreens()
{
    m_displays = std::make_unique<DisplayServer>(
        m_loop, m_machine, *m_pasteboard, [this](const std::string &line) { m_log.line(line); });
    const auto begin =
        m_begin == Begin::saved ? DisplayServer::Begin::saved : DisplayServer::Begin::configured;
    m_displays->start(*m_qmp, begin, [this](const ServiceFailure &failure) { onScreens(failure); });
}

void Engine::onScreens(const ServiceFailure &failure)
{
    if (failure) {
        m_handlers.failed("the engine's display: " + failure.text);
        return;
    }
    unplugCables();
    m_handlers.ready();
}

void Engine::unplugCables()
{
    const std::vector<MachineNetwork> &networks = m_machine.networks;
    for (size_t i = 0; i < networks.size(); i++) {
        if (networks[i].mode != NetworkMode::disconnected)
            continue;
        JsonTree link(json_mkobject());
        json_append_str(link.get(), "name", ("nic" + std::to_string(i)).c_str());
        json_append_bool(link.get(), "up", false);
        m_qmp->execute("set_link", std::move(link),
                       [this](const json *done, const std::string &why) {
                           if (!done)
                               m_log.line("a network card can't be disconnected: " + why);
                       });
    }
}

void Engine::go(std::function<void()> running)
{
    m_qmp->execute(
        "cont", [this, running = std::move(running)](const json *result, const std::string &error) {
            if (result)
                running();
            else
                m_handlers.failed("the guest can't run: " + error);
        });
}
