// All screens of the VM: connects to QEMU's display and hands viewers what they need.
#pragma once

#include "services/engine/machine.h"
#include "services/engine/trees.h"
#include "services/tarvvm/machine/qmp.h"
#include "services/tarvvm/screens/screen.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class DisplayServer
{
public:
    // Of all screens together. Each costs a descriptor and, while it is stopped, a few frame
    // buffers; nobody has that many windows.
    static constexpr size_t VIEWERS_MAX = 32;

    using Done = std::function<void(const ServiceFailure &failure)>;

    DisplayServer(sd_event *loop, const Machine &machine, GuestPasteboard &pasteboard,
                  Screen::Log log);
    DisplayServer(const DisplayServer &) = delete;
    DisplayServer &operator=(const DisplayServer &) = delete;

    // What the guest's screens begin with.
    enum class Begin
    {
        configured,
        saved // the sizes that come with a saved state: keepSizes() once it is loaded
    };

    // Becomes QEMU's display client, learns its consoles and asks for the sizes of further heads.
    void start(Qmp &qmp, Begin begin, const Done &done);
    // Tells QEMU the sizes of a resumed guest's screens. It has forgotten them, and would have the
    // guest go back to those that are configured the next time that it tells any.
    void keepSizes();
    // "displays" of the VM's status.
    JsonTree describe() const;
    // What a viewer is told of a screen, with the two descriptors that it gets: the frame buffer,
    // which stays this side's, and a new end of a display channel. Null with errno set; ENOENT: no
    // such screen; EUSERS: VIEWERS_MAX look already.
    JsonTree addViewer(size_t index, int *frame, UniqueFd *channel);
    void close(display_close_reason reason);

private:
    void remove();
    size_t viewers() const;
    void takeConsoles(const std::vector<Console> &consoles, const Done &done);
    void plugIn(size_t number);

    sd_event *m_loop;
    const Machine &m_machine;
    GuestPasteboard &m_pasteboard;
    Screen::Log m_log;
    Qmp *m_qmp = nullptr;
    Begin m_begin = Begin::configured;
    InputGate m_gate;                   // outlives both ways to QEMU
    std::unique_ptr<DisplayBus> m_bus;  // outlives the screens
    std::unique_ptr<Desktop> m_desktop; // of several screens; outlives them
    std::vector<std::unique_ptr<Screen>> m_screens;
    EventSource m_removal;
    bool m_removed = false;
};
