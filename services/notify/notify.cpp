#include "services/notify/notify.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>

#include <systemd/sd-bus.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto PATIENCE = std::chrono::seconds(2);

struct BusClose
{
    // A bus that took nothing yet is dropped with what is queued for it: no flush, no wait.
    void operator()(sd_bus *bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusClose>;

// Runs the connection until all that is queued has been written. 0 or a negative errno.
int write_out(sd_bus *bus, Clock::time_point deadline)
{
    for (;;) {
        int result = sd_bus_process(bus, nullptr);
        if (result < 0)
            return result;
        if (result > 0)
            continue;
        // Signals are only queued for writing once the bus has answered the greeting.
        uint64_t queued = 0;
        if (sd_bus_is_ready(bus) > 0) {
            result = sd_bus_get_n_queued_write(bus, &queued);
            if (result < 0 || queued == 0)
                return result < 0 ? result : 0;
        }
        auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return -ETIMEDOUT;
        result = sd_bus_wait(bus, static_cast<uint64_t>(left));
        if (result < 0 && result != -EINTR)
            return result;
    }
}

// A connection to the session bus, not yet greeted; null when there is none.
sd_bus *open_bus()
{
    const std::string address = notify_bus_address();
    sd_bus *made = nullptr;
    if (address.empty() || sd_bus_new(&made) < 0)
        return nullptr;
    Bus bus(made);
    if (sd_bus_set_address(made, address.c_str()) < 0 || sd_bus_set_bus_client(made, 1) < 0 ||
        sd_bus_start(made) < 0)
        return nullptr;
    return bus.release();
}

} // namespace

std::string notify_bus_address()
{
    const char *address = getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address)
        return address;
    const char *runtime = getenv("XDG_RUNTIME_DIR");
    const std::string directory =
        runtime && *runtime ? runtime : "/run/user/" + std::to_string(getuid());
    // Of an address, what is no plain byte of a path is escaped.
    const bool plain = directory.find_first_of(",;%= ") == std::string::npos;
    const std::string path = directory + "/bus";
    return plain && access(path.c_str(), F_OK) == 0 ? "unix:path=" + path : "";
}

bool notify_bus_answers()
{
    Bus bus(open_bus());
    return bus && write_out(bus.get(), Clock::now() + PATIENCE) == 0;
}

ServiceFailure notify_post(const char *member, const char *id)
{
    const std::string subject = std::string("failed to announce the ") + (member ? member : "");
    if (!member || !id || !sd_bus_member_name_is_valid(member))
        return ServiceFailure::of(subject, EINVAL);
    auto deadline = Clock::now() + PATIENCE;
    Bus bus(open_bus());
    if (!bus)
        return ServiceFailure::of(subject, ENOTCONN);
    int result = sd_bus_emit_signal(bus.get(), NOTIFY_PATH, NOTIFY_INTERFACE, member, "s", id);
    if (result >= 0)
        result = write_out(bus.get(), deadline);
    if (result < 0)
        return ServiceFailure::of(subject,
                                  result == -ETIMEDOUT || result == -EINVAL ? -result : ENOTCONN);
    return {};
}
