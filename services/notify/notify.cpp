#include "services/notify/notify.h"

#include <cerrno>
#include <chrono>
#include <memory>

#include <systemd/sd-bus.h>

namespace {

using Clock = std::chrono::steady_clock;

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

int fail(int error)
{
    errno = error;
    return -1;
}

} // namespace

int notify_post(const char *member, const char *id)
{
    if (!member || !id || !sd_bus_member_name_is_valid(member))
        return fail(EINVAL);
    auto deadline = Clock::now() + std::chrono::seconds(2);
    sd_bus *opened = nullptr;
    if (sd_bus_open_user(&opened) < 0)
        return fail(ENOTCONN);
    Bus bus(opened);
    int result = sd_bus_emit_signal(bus.get(), NOTIFY_PATH, NOTIFY_INTERFACE, member, "s", id);
    if (result >= 0)
        result = write_out(bus.get(), deadline);
    if (result < 0)
        return fail(result == -ETIMEDOUT || result == -EINVAL ? -result : ENOTCONN);
    return 0;
}
