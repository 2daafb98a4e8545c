// An owned source of the event loop: it fires no more once this is gone.
#pragma once

#include <memory>

#include <systemd/sd-event.h>

struct EventSourceDelete
{
    void operator()(sd_event_source *source) const { sd_event_source_disable_unref(source); }
};
using EventSource = std::unique_ptr<sd_event_source, EventSourceDelete>;
