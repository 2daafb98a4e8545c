#include "services/loop/event.h"

#include <csignal>
#include <utility>

#include <sys/inotify.h>

namespace {

template <typename Handler>
struct Closure
{
    Handler handler;
    static void destroy(void *closure) { delete static_cast<Closure *>(closure); }
};

// Makes a source whose closure lives as long as it.
template <typename Handler, typename Make>
EventSource make_source(Handler handler, Make make)
{
    auto closure = std::make_unique<Closure<Handler>>(Closure<Handler>{std::move(handler)});
    sd_event_source *source = nullptr;
    if (make(&source, closure.get()) < 0)
        return nullptr;
    sd_event_source_set_destroy_callback(source, Closure<Handler>::destroy);
    (void)closure.release(); // the source deletes it
    return EventSource(source);
}

using IoHandler = std::function<void(uint32_t)>;
using PlainHandler = std::function<void()>;
using SignalHandler = std::function<void(int, int)>;

int on_io(sd_event_source *, int, uint32_t events, void *closure)
{
    static_cast<Closure<IoHandler> *>(closure)->handler(events);
    return 0;
}

int on_timer(sd_event_source *, uint64_t, void *closure)
{
    static_cast<Closure<PlainHandler> *>(closure)->handler();
    return 0;
}

int on_file(sd_event_source *, const inotify_event *, void *closure)
{
    static_cast<Closure<PlainHandler> *>(closure)->handler();
    return 0;
}

int on_defer(sd_event_source *, void *closure)
{
    static_cast<Closure<PlainHandler> *>(closure)->handler();
    return 0;
}

int on_signal(sd_event_source *, const signalfd_siginfo *info, void *closure)
{
    static_cast<Closure<SignalHandler> *>(closure)->handler(
        int(info->ssi_signo), info->ssi_code == SI_QUEUE ? int(info->ssi_int) : 0);
    return 0;
}

} // namespace

EventSource event_io(sd_event *loop, int fd, uint32_t events, std::function<void(uint32_t)> ready)
{
    return make_source(std::move(ready), [&](sd_event_source **source, void *closure) {
        return sd_event_add_io(loop, source, fd, events, on_io, closure);
    });
}

EventSource event_timer(sd_event *loop, uint64_t milliseconds, std::function<void()> elapsed)
{
    return make_source(std::move(elapsed), [&](sd_event_source **source, void *closure) {
        return sd_event_add_time_relative(loop, source, CLOCK_MONOTONIC, milliseconds * 1000, 1000,
                                          on_timer, closure);
    });
}

EventSource event_file(sd_event *loop, const std::string &path, std::function<void()> changed)
{
    return make_source(std::move(changed), [&](sd_event_source **source, void *closure) {
        return sd_event_add_inotify(loop, source, path.c_str(),
                                    IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF, on_file, closure);
    });
}

EventSource event_defer(sd_event *loop, std::function<void()> run)
{
    return make_source(std::move(run), [&](sd_event_source **source, void *closure) {
        return sd_event_add_defer(loop, source, on_defer, closure);
    });
}

EventSource event_signal(sd_event *loop, int number,
                         std::function<void(int number, int value)> arrived)
{
    return make_source(std::move(arrived), [&](sd_event_source **source, void *closure) {
        return sd_event_add_signal(loop, source, number, on_signal, closure);
    });
}
