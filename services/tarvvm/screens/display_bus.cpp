#include "services/tarvvm/screens/display_bus.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

constexpr const char *ROOT = "/org/qemu/Display1";
constexpr std::string_view CONSOLE_PREFIX = "/org/qemu/Display1/Console_";
constexpr const char *CONSOLE = "org.qemu.Display1.Console";
constexpr const char *KEYBOARD = "org.qemu.Display1.Keyboard";
constexpr const char *MOUSE = "org.qemu.Display1.Mouse";

struct MessageFree
{
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageFree>;

std::string console_path(unsigned console)
{
    return std::string(CONSOLE_PREFIX) + std::to_string(console);
}

std::optional<unsigned> console_number(std::string_view path)
{
    if (!path.starts_with(CONSOLE_PREFIX))
        return std::nullopt;
    path.remove_prefix(CONSOLE_PREFIX.size());
    unsigned number = 0;
    const auto [end, failure] = std::from_chars(path.data(), path.data() + path.size(), number);
    if (failure != std::errc() || end != path.data() + path.size())
        return std::nullopt;
    return number;
}

ServiceFailure failure_of(sd_bus_message *answer)
{
    const sd_bus_error *error = sd_bus_message_get_error(answer);
    if (!error)
        return {};
    return {sd_bus_error_get_errno(error), error->message ? error->message : error->name};
}

ServiceFailure failure_of(int result)
{
    return {-result, std::strerror(-result)};
}

// What of a console's properties is of use, from any of its interfaces.
struct Properties
{
    ConsoleChange change;
    bool graphic = false;
};

template <typename Value>
int read_value(sd_bus_message *message, const char *type, std::optional<Value> *value)
{
    // A truth value is read into an int.
    std::conditional_t<std::is_same_v<Value, bool>, int, Value> read{};
    const int result = sd_bus_message_read(message, "v", type, &read);
    if (result >= 0)
        *value = Value(read);
    return result;
}

// Reads one a{sv}. 0 or more, or a negative errno.
int read_properties(sd_bus_message *message, Properties *properties)
{
    int result = sd_bus_message_enter_container(message, 'a', "{sv}");
    if (result < 0)
        return result;
    while ((result = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
        const char *name = nullptr;
        if ((result = sd_bus_message_read(message, "s", &name)) < 0)
            return result;
        if (std::strcmp(name, "Width") == 0) {
            result = read_value(message, "u", &properties->change.width);
        } else if (std::strcmp(name, "Height") == 0) {
            result = read_value(message, "u", &properties->change.height);
        } else if (std::strcmp(name, "IsAbsolute") == 0) {
            result = read_value(message, "b", &properties->change.absolute);
        } else if (std::strcmp(name, "Type") == 0) {
            const char *type = "";
            result = sd_bus_message_read(message, "v", "s", &type);
            properties->graphic = result >= 0 && std::strcmp(type, "Graphic") == 0;
        } else {
            result = sd_bus_message_skip(message, "v");
        }
        if (result < 0 || (result = sd_bus_message_exit_container(message)) < 0)
            return result;
    }
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

// Reads a{sa{sv}}: the interfaces of an object.
int read_interfaces(sd_bus_message *message, Properties *properties)
{
    int result = sd_bus_message_enter_container(message, 'a', "{sa{sv}}");
    while (result >= 0 && (result = sd_bus_message_enter_container(message, 'e', "sa{sv}")) > 0) {
        if ((result = sd_bus_message_skip(message, "s")) < 0 ||
            (result = read_properties(message, properties)) < 0)
            return result;
        result = sd_bus_message_exit_container(message);
    }
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

// Reads a{oa{sa{sv}}}: all objects.
int read_objects(sd_bus_message *message, std::vector<Console> *consoles)
{
    int result = sd_bus_message_enter_container(message, 'a', "{oa{sa{sv}}}");
    while (result >= 0 &&
           (result = sd_bus_message_enter_container(message, 'e', "oa{sa{sv}}")) > 0) {
        const char *path = nullptr;
        Properties properties;
        if ((result = sd_bus_message_read(message, "o", &path)) < 0 ||
            (result = read_interfaces(message, &properties)) < 0)
            return result;
        const std::optional<unsigned> number = console_number(path);
        const ConsoleChange &found = properties.change;
        if (number && properties.graphic)
            consoles->push_back({*number, found.width.value_or(0), found.height.value_or(0),
                                 found.absolute.value_or(false)});
        result = sd_bus_message_exit_container(message);
    }
    std::sort(consoles->begin(), consoles->end(),
              [](const Console &a, const Console &b) { return a.index < b.index; });
    return result < 0 ? result : sd_bus_message_exit_container(message);
}

// Sends a call; its closure gets the answer and lives until then, or as long as the bus.
int send_call(sd_bus *bus, sd_bus_message *message, std::function<void(sd_bus_message *)> answered)
{
    using Answered = std::function<void(sd_bus_message *)>;
    auto closure = std::make_unique<Answered>(std::move(answered));
    sd_bus_slot *slot = nullptr;
    const int result = sd_bus_call_async(
        bus, &slot, message,
        [](sd_bus_message *reply, void *data, sd_bus_error *) {
            (*static_cast<Answered *>(data))(reply);
            return 1;
        },
        closure.get(), 0);
    if (result < 0)
        return result;
    sd_bus_slot_set_destroy_callback(slot,
                                     [](void *data) { delete static_cast<Answered *>(data); });
    static_cast<void>(closure.release()); // the slot has it
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
    return 0;
}

} // namespace

std::unique_ptr<DisplayBus> DisplayBus::open(sd_event *loop, UniqueFd socket, Handlers handlers)
{
    std::unique_ptr<DisplayBus> self(new DisplayBus(std::move(handlers)));
    sd_bus *bus = nullptr;
    int result = sd_bus_new(&bus);
    if (result >= 0) {
        self->m_bus.reset(bus);
        result = sd_bus_set_fd(bus, socket.get(), socket.get());
    }
    if (result >= 0) {
        socket.release(); // the bus closes it
        result = sd_bus_negotiate_fds(bus, 1);
    }
    if (result >= 0)
        result = sd_bus_add_filter(bus, nullptr, onMessage, self.get());
    if (result >= 0)
        result = sd_bus_start(bus);
    // By default the loop's exit sends what is queued and waits for it, and before that for the
    // handshake. An engine that died or stands still while it starts would hold the exit up.
    if (result >= 0)
        result = sd_bus_set_close_on_exit(bus, 0);
    if (result >= 0)
        result = sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
    if (result >= 0)
        return self;
    errno = -result;
    return nullptr;
}

int DisplayBus::onMessage(sd_bus_message *message, void *self, sd_bus_error *)
{
    DisplayBus *bus = static_cast<DisplayBus *>(self);
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local", "Disconnected") > 0) {
        bus->m_handlers.closed("QEMU closed its display connection");
        return 1;
    }
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus.Properties", "PropertiesChanged") >
        0)
        return bus->handleChange(message);
    return 0;
}

int DisplayBus::handleChange(sd_bus_message *message)
{
    const char *path = sd_bus_message_get_path(message);
    const std::optional<unsigned> console = console_number(path ? path : "");
    Properties properties;
    if (console && sd_bus_message_skip(message, "s") >= 0 &&
        read_properties(message, &properties) >= 0)
        m_handlers.changed(*console, properties.change);
    return 1;
}

void DisplayBus::listConsoles(const Consoles &consoles)
{
    sd_bus_message *made = nullptr;
    int result =
        sd_bus_message_new_method_call(m_bus.get(), &made, nullptr, ROOT,
                                       "org.freedesktop.DBus.ObjectManager", "GetManagedObjects");
    const Message message(made);
    if (result >= 0)
        result = send_call(m_bus.get(), made, [consoles](sd_bus_message *reply) {
            std::vector<Console> found;
            ServiceFailure failure = failure_of(reply);
            if (!failure)
                if (const int read = read_objects(reply, &found); read < 0)
                    failure = failure_of(read);
            consoles(std::move(found), failure);
        });
    if (result < 0)
        consoles({}, failure_of(result));
}

template <typename... Values>
void DisplayBus::call(unsigned console, const char *interface, const char *member, const Done &done,
                      const char *types, Values... values)
{
    sd_bus_message *made = nullptr;
    int result = sd_bus_message_new_method_call(m_bus.get(), &made, nullptr,
                                                console_path(console).c_str(), interface, member);
    const Message message(made);
    if (result >= 0)
        result = sd_bus_message_append(made, types, values...);
    if (result >= 0)
        result = send_call(m_bus.get(), made,
                           [done](sd_bus_message *reply) { done(failure_of(reply)); });
    if (result < 0)
        done(failure_of(result));
}

void DisplayBus::registerListener(unsigned console, int socket, const Done &done)
{
    call(console, CONSOLE, "RegisterListener", done, "h", socket);
}

void DisplayBus::key(unsigned console, uint32_t number, bool down, const Done &done)
{
    call(console, KEYBOARD, down ? "Press" : "Release", done, "u", number);
}

void DisplayBus::button(unsigned console, uint32_t number, bool down, const Done &done)
{
    call(console, MOUSE, down ? "Press" : "Release", done, "u", number);
}

void DisplayBus::moveTo(unsigned console, uint32_t x, uint32_t y, const Done &done)
{
    call(console, MOUSE, "SetAbsPosition", done, "uu", x, y);
}

void DisplayBus::moveBy(unsigned console, int32_t dx, int32_t dy, const Done &done)
{
    call(console, MOUSE, "RelMotion", done, "ii", dx, dy);
}

void DisplayBus::setSize(unsigned console, uint16_t width_mm, uint16_t height_mm, uint32_t width,
                         uint32_t height, const Done &done)
{
    call(console, CONSOLE, "SetUIInfo", done, "qqiiuu", int(width_mm), int(height_mm), int32_t{0},
         int32_t{0}, width, height);
}
