// Control connection to QEMU's display: consoles, their properties, input.
#pragma once

#include "services/failure.h"
#include "services/loop/event.h"

#include "platform/unique_fd.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <systemd/sd-bus.h>

struct Console
{
    unsigned index = 0; // its number in the object path
    uint32_t width = 0; // pixels
    uint32_t height = 0;
    bool absolute = false; // takes absolute pointer positions
};

struct ConsoleChange
{
    std::optional<uint32_t> width;
    std::optional<uint32_t> height;
    std::optional<bool> absolute;
};

class DisplayBus
{
public:
    using Done = std::function<void(const ServiceFailure &failure)>;
    using Consoles = std::function<void(std::vector<Console>, const ServiceFailure &failure)>;
    struct Handlers
    {
        std::function<void(unsigned console, const ConsoleChange &change)> changed;
        std::function<void(const std::string &reason)> closed;
    };

    // Starts to speak on a socket whose other end QEMU serves. Null with errno set.
    static std::unique_ptr<DisplayBus> open(sd_event *loop, UniqueFd socket, Handlers handlers);
    DisplayBus(const DisplayBus &) = delete;
    DisplayBus &operator=(const DisplayBus &) = delete;

    // The graphical consoles in ascending order.
    void listConsoles(const Consoles &consoles);
    // Hands QEMU its end of a listener's socket.
    void registerListener(unsigned console, int socket, const Done &done);
    // `done`: QEMU has dealt with it.
    void key(unsigned console, uint32_t number, bool down, const Done &done);
    void button(unsigned console, uint32_t number, bool down, const Done &done);
    void moveTo(unsigned console, uint32_t x, uint32_t y, const Done &done);
    void moveBy(unsigned console, int32_t dx, int32_t dy, const Done &done);
    // Tells the guest the size of its screen: millimetres and pixels.
    void setSize(unsigned console, uint16_t width_mm, uint16_t height_mm, uint32_t width,
                 uint32_t height, const Done &done);

private:
    // Without sending what is still queued: it is of no use to an engine that is let go of.
    struct BusClose
    {
        void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
    };

    explicit DisplayBus(Handlers handlers) : m_handlers(std::move(handlers)) {}
    // Calls a method of a console's interface.
    template <typename... Values>
    void call(unsigned console, const char *interface, const char *member, const Done &done,
              const char *types, Values... values);
    static int onMessage(sd_bus_message *message, void *self, sd_bus_error *error);
    int handleChange(sd_bus_message *message);

    Handlers m_handlers;
    std::unique_ptr<sd_bus, BusClose> m_bus;
};
