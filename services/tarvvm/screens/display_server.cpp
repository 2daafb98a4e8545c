#include "services/tarvvm/screens/display_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr const char *FD_NAME = "display";
constexpr uint64_t REMOVAL_MS = 2000;

} // namespace

DisplayServer::DisplayServer(sd_event *loop, const Machine &machine, GuestPasteboard &pasteboard,
                             Screen::Log log)
    : m_loop(loop),
      m_machine(machine),
      m_pasteboard(pasteboard),
      m_log(std::move(log)),
      m_gate(loop)
{
}

void DisplayServer::start(Qmp &qmp, Begin begin, const Done &done)
{
    m_qmp = &qmp;
    m_begin = begin;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        done(ServiceFailure::of("a socket for it"));
        return;
    }
    UniqueFd ours(ends[0]);
    const UniqueFd theirs(ends[1]);
    DisplayBus::Handlers handlers;
    handlers.changed = [this](unsigned console, const ConsoleChange &change) {
        for (const auto &screen : m_screens)
            if (screen->index() == console)
                screen->consoleChanged(change);
    };
    handlers.closed = [this](const std::string &reason) {
        m_log(reason);
        // As a rule QEMU is ending, which is another reason to close.
        m_removal = event_timer(m_loop, REMOVAL_MS, [this] { remove(); });
    };
    m_bus = DisplayBus::open(m_loop, std::move(ours), std::move(handlers));
    if (!m_bus) {
        done(ServiceFailure::of("its connection"));
        return;
    }
    JsonTree name(json_mkobject());
    json_append_str(name.get(), "fdname", FD_NAME);
    qmp.execute("getfd", std::move(name), {}, theirs.get());
    JsonTree client(json_mkobject());
    json_append_str(client.get(), "protocol", "@dbus-display");
    json_append_str(client.get(), "fdname", FD_NAME);
    qmp.execute("add_client", std::move(client),
                [this, done](const json *result, const std::string &error) {
                    if (!result) {
                        done({EIO, error});
                        return;
                    }
                    m_bus->listConsoles([this, done](const std::vector<Console> &consoles,
                                                     const ServiceFailure &failure) {
                        if (failure)
                            done(failure);
                        else
                            takeConsoles(consoles, done);
                    });
                });
}

// The guest runs on without its screens.
void DisplayServer::remove()
{
    m_log("the screens are gone, the guest runs on");
    m_removed = true;
    close(DISPLAY_CLOSE_REMOVED);
}

void DisplayServer::takeConsoles(const std::vector<Console> &consoles, const Done &done)
{
    const size_t count = std::min(consoles.size(), m_machine.displays.size());
    if (count > 1) {
        m_desktop = std::make_unique<Desktop>(*m_qmp, m_gate, count);
        m_desktop->setSize(0, consoles[0].width, consoles[0].height);
    }
    for (size_t number = 0; number < count; number++) {
        std::unique_ptr<Screen> screen =
            Screen::create(m_loop, *m_bus, consoles[number], m_machine.displays[number].hdpi,
                           m_pasteboard, m_desktop.get(), m_gate, m_log);
        if (!screen) {
            done(ServiceFailure::of("memory for screen " + std::to_string(number)));
            return;
        }
        m_screens.push_back(std::move(screen));
        // The first head has its size from the start; a further one is plugged in by it.
        if (number > 0 && m_begin == Begin::configured)
            plugIn(number);
    }
    done(m_screens.empty() ? ServiceFailure{ENODEV, "QEMU has no screen"} : ServiceFailure());
}

void DisplayServer::plugIn(size_t number)
{
    m_screens[number]->plugIn(m_machine.displays[number].width, m_machine.displays[number].height);
}

void DisplayServer::keepSizes()
{
    m_bus->listConsoles(
        [this](const std::vector<Console> &consoles, const ServiceFailure &failure) {
            if (failure)
                m_log("the sizes of the screens: " + failure.text);
            for (size_t i = 0; i < std::min(consoles.size(), m_screens.size()); i++) {
                Screen &screen = *m_screens[i];
                screen.consoleChanged({consoles[i].width, consoles[i].height, {}});
                if (screen.used() || i == 0)
                    screen.keepSize();
                else
                    plugIn(i);
            }
        });
}

JsonTree DisplayServer::describe() const
{
    JsonTree list(json_mkarray());
    for (size_t i = 0; !m_removed && i < m_screens.size(); i++) {
        JsonTree item(json_mkobject());
        json_append_int64(item.get(), "index", int64_t(i));
        json_append_int64(item.get(), "width", m_screens[i]->frame().width());
        json_append_int64(item.get(), "height", m_screens[i]->frame().height());
        json_append(list.get(), nullptr, item.release());
    }
    return list;
}

size_t DisplayServer::viewers() const
{
    size_t count = 0;
    for (const auto &screen : m_screens)
        count += screen->viewers();
    return count;
}

JsonTree DisplayServer::addViewer(size_t index, int *frame, UniqueFd *channel)
{
    if (m_removed || index >= m_screens.size()) {
        errno = ENOENT;
        return nullptr;
    }
    if (viewers() >= VIEWERS_MAX) {
        errno = EUSERS;
        return nullptr;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
        return nullptr;
    channel->reset(ends[1]);
    Screen &screen = *m_screens[index];
    *frame = screen.frame().viewerFd();
    JsonTree body(json_mkobject());
    json_append_str(body.get(), "uuid", m_machine.id.c_str());
    json_append_str(body.get(), "name", m_machine.name.c_str());
    json_append_int64(body.get(), "index", int64_t(index));
    json_append_int64(body.get(), "total", int64_t(m_screens.size()));
    json_append_int64(body.get(), "width", screen.frame().width());
    json_append_int64(body.get(), "height", screen.frame().height());
    json_append_bool(body.get(), "hdpi", screen.mode().hdpi);
    json_append_bool(body.get(), "live_resize", screen.mode().live_resize);
    json_append_int64(body.get(), "caps", m_pasteboard.caps());
    json_append_bool(body.get(), "absolute", screen.absolute());
    screen.addViewer(UniqueFd(ends[0]));
    return body;
}

void DisplayServer::close(display_close_reason reason)
{
    for (const auto &screen : m_screens)
        screen->close(reason);
}
