// Event sources of sd-event as owned values with closures as handlers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <systemd/sd-event.h>

struct EventSourceFree
{
    void operator()(sd_event_source *source) const { sd_event_source_disable_unref(source); }
};
// Dropping a source ends its callbacks at once, also from inside its own handler.
using EventSource = std::unique_ptr<sd_event_source, EventSourceFree>;

// Calls `ready` with the poll events (EPOLLIN, EPOLLOUT …) of a descriptor. Null when out of
// memory.
EventSource event_io(sd_event *loop, int fd, uint32_t events, std::function<void(uint32_t)> ready);
// Calls `elapsed` once, so many milliseconds from now.
EventSource event_timer(sd_event *loop, uint64_t milliseconds, std::function<void()> elapsed);
// Calls `changed` whenever something happens to the file of this name itself: it is removed,
// renamed or gets other attributes. Null with errno set where it can't be watched.
EventSource event_file(sd_event *loop, const std::string &path, std::function<void()> changed);
// Calls `run` once, on the loop's next turn.
EventSource event_defer(sd_event *loop, std::function<void()> run);
// Calls `arrived` with the number of a signal, which must be blocked in every thread, and the value
// that was queued with it; 0 as a rule.
EventSource event_signal(sd_event *loop, int number,
                         std::function<void(int number, int value)> arrived);
