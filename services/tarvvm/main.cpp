// tarvvm: runs one virtual machine and answers for it.
#include "hostlib/config/config.h"
#include "services/bounds.h"
#include "services/tarvvm/core/report.h"
#include "services/tarvvm/core/supervisor.h"

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <sysexits.h>
#include <unistd.h>

namespace {

struct LoopFree
{
    void operator()(sd_event *loop) const { sd_event_unref(loop); }
};

struct Options
{
    StartMode mode = StartMode::normal;
    std::string id;
};

constexpr const char *USAGE = "usage: tarvvm [--mode 0|1|2] ID\n"
                              "Runs the virtual machine with this identifier until it ends.\n"
                              "  --mode 0  normal start (a suspended machine is resumed)\n"
                              "  --mode 1  forced start, as 0\n"
                              "  --mode 2  recovery: boots afresh, from the CD first\n"
                              "  --version, --help\n";

// Exit status to end with at once, or -1 to go on.
int read_arguments(int count, char **arguments, Options *options)
{
    for (int i = 1; i < count; i++) {
        const std::string argument = arguments[i];
        if (argument == "--help" || argument == "--version") {
            std::fputs(argument == "--help" ? USAGE : "tarvvm " TARV_VERSION "\n", stdout);
            return EX_OK;
        }
        const auto mode = argument == START_MODE_OPTION && i + 1 < count
                              ? start_mode_from(arguments[i + 1])
                              : std::nullopt;
        if (mode) {
            options->mode = *mode;
            ++i;
        } else if (argument.starts_with("-") || !options->id.empty()) {
            std::fprintf(stderr, "tarvvm: unexpected argument \"%s\"\n%s", arguments[i], USAGE);
            return EX_USAGE;
        } else {
            options->id = argument;
        }
    }
    if (!options->id.empty())
        return -1;
    std::fprintf(stderr, "tarvvm: no identifier\n%s", USAGE);
    return EX_USAGE;
}

// The signals that end a VM are taken by the loop, in whatever thread they would come.
void block_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int run(const Options &options)
{
    sd_event *made = nullptr;
    if (sd_event_new(&made) < 0)
        return EX_OSERR;
    const std::unique_ptr<sd_event, LoopFree> loop(made);
    Supervisor supervisor(loop.get(), options.mode);
    const auto on_signal = [&](int number, int value) {
        const std::string why = "signal " + std::to_string(number);
        if (number == SIGINT || value == JOB_REMOVED)
            supervisor.stopNow("ended by " + why);
        else
            supervisor.endOfSession(why);
    };
    EventSource sources[3];
    int next = 0;
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        sources[next++] = event_signal(loop.get(), number, on_signal);
    if (supervisor.begin(options.id))
        sd_event_loop(loop.get());
    const SupervisorEnd &end = supervisor.end();
    if (!supervisor.finish([&] { report_write(end.status, end.message); }))
        _exit(end.status); // the thread that is stuck goes with the process
    return end.status;
}

} // namespace

int main(int count, char **arguments)
{
    Options options;
    const int early = read_arguments(count, arguments, &options);
    if (early >= 0)
        return early;
    block_signals();
    config_find(nullptr);
    return run(options);
}
