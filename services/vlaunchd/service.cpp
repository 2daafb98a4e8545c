#include "services/vlaunchd/service.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vms/vms.h"
#include "services/loop/worker.h"
#include "services/notify/notify.h"
#include "services/settings.h"
#include "services/vlaunchd/guard.h"
#include "services/vlaunchd/holder.h"
#include "services/vlaunchd/server.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {

struct EventDelete
{
    void operator()(sd_event *event) const { sd_event_unref(event); }
};

constexpr const char *USAGE = "Usage: vlaunchd [OPTIONS]\n"
                              "Owns the jobs that run virtual machines.\n\n"
                              "  --detach    leave the session of the program that started it\n"
                              "  --version   print the version\n"
                              "  --help      print this text\n";

// The listening socket, and whether it is this process's to remove.
struct Listener
{
    UniqueFd fd;
    std::string path; // "" when the service manager owns it
};

int open_listener(const std::string &path, Listener &listener)
{
    const int given = sd_listen_fds(1);
    if (given > 0) {
        if (sd_is_socket_unix(SD_LISTEN_FDS_START, SOCK_STREAM, 1, nullptr, 0) <= 0) {
            errno = ENOTSOCK;
            return -1;
        }
        listener.fd.reset(SD_LISTEN_FDS_START);
        if (sd_is_socket_unix(SD_LISTEN_FDS_START, SOCK_STREAM, 1, path.c_str(), 0) == 0)
            dprintf(log_fd,
                    "vlaunchd: the service manager listens elsewhere than vlaunch_sock says, %s: "
                    "nobody will ask there\r\n",
                    path.c_str());
        return fcntl(listener.fd.get(), F_SETFL, O_NONBLOCK);
    }
    listener.fd.reset(cli2_listen(path.c_str()));
    listener.path = path;
    return listener.fd ? 0 : -1;
}

// The log of a job: that of the VM in the log directory, else the service's own.
int open_job_log(const std::string &label)
{
    const std::string id = place_vm_of_job(label);
    const char *directory = id.empty() ? nullptr : config_get_path("log_dir");
    if (!directory)
        return -1;
    const std::string path = std::string(directory) + "/" + id + ".log";
    UniqueFd fd(openx(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600));
    struct stat info;
    if (fd && fstat(fd.get(), &info) == 0 && info.st_size > off_t(VM_LOG_FOREIGN_MAX) &&
        ftruncate(fd.get(), 0) != 0)
        dprintf(log_fd, "vlaunchd: %s: %s\r\n", path.c_str(), strerror(errno));
    return fd.release();
}

void announce_stop(const std::string &id)
{
    const ServiceFailure failure = notify_post("stop", id.c_str());
    if (failure && failure.error != ENOTCONN)
        dprintf(log_fd, "vlaunchd: %s: %s\r\n", id.c_str(), failure.text.c_str());
}

JobOptions job_options(Worker *bus)
{
    JobOptions options;
    // A supervisor goes down its own ladder first; this is the rung below it.
    options.term_wait = stop_wait_setting() + SUPERVISOR_GRACE;
    options.open_log = open_job_log;
    options.vm_died = [bus](const std::string &id) {
        if (!bus || !bus->post([id] { announce_stop(id); }, [] {}))
            dprintf(log_fd, "vlaunchd: %s: no room to announce the stop\r\n", id.c_str());
    };
    return options;
}

// Every job costs a descriptor, every client another.
void raise_descriptor_limit()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int fail(const std::string &what, int error)
{
    dprintf(log_fd, "vlaunchd: %s: %s\r\n", what.c_str(), strerror(error));
    return 1;
}

// SIGTERM and SIGINT end the loop; the jobs stay.
int watch_signals(sd_event *event)
{
    sigset_t ends;
    sigemptyset(&ends);
    for (int number : {SIGTERM, SIGINT})
        sigaddset(&ends, number);
    if (sigprocmask(SIG_BLOCK, &ends, nullptr) != 0)
        return -errno;
    for (int number : {SIGTERM, SIGINT})
        if (int result = sd_event_add_signal(event, nullptr, number, nullptr, nullptr); result < 0)
            return result;
    signal(SIGPIPE, SIG_IGN);
    return 0;
}

int serve()
{
    const std::string path = vms_launch_socket();
    sd_event *created = nullptr;
    int result = sd_event_default(&created);
    std::unique_ptr<sd_event, EventDelete> event(created);
    if (result < 0 || (result = watch_signals(created)) < 0)
        return fail("failed to make an event loop", -result);

    Listener listener;
    if (open_listener(path, listener) != 0)
        return fail(path, errno);
    raise_descriptor_limit();
    const bool own_socket = !listener.path.empty();
    SocketGuard guard;
    Server *serving = nullptr;
    const auto leave = [&] { sd_event_exit(created, 0); };
    const auto renew = [&] {
        dprintf(log_fd, "vlaunchd: %s: the socket was removed, made again\r\n", path.c_str());
        UniqueFd again(cli2_listen(path.c_str()));
        guard.renew();
        if (!serving || !again || serving->listen_on(again.release()) != 0)
            leave();
    };
    const auto taken = [&] {
        dprintf(log_fd, "vlaunchd: %s: another serves there now\r\n", path.c_str());
        leave();
    };
    if (own_socket && !guard.watch(created, path, {renew, taken}))
        return fail(path, errno);

    // The notifications of deaths go over the session's bus, which may hang; the jobs do not wait.
    const std::unique_ptr<Worker> bus = Worker::start(created, JOBS_MAX);
    JobTable jobs(created, job_options(bus.get()));
    if (jobs.open(records_path(path)) != 0) {
        const int error = errno;
        guard.remove();
        return fail(records_path(path) + (error == EBUSY ? ": another launch service" : ""), error);
    }
    Server server(created, jobs, listener.fd.release());
    serving = &server;
    if (server.open() != 0)
        return fail(path, errno);
    sd_notify(0, "READY=1");
    dprintf(log_fd, "vlaunchd: serving on %s\r\n", path.c_str());
    result = sd_event_loop(created);
    guard.remove();
    return result < 0 ? fail("the event loop failed", -result) : 0;
}

} // namespace

int vlaunchd_main(int argc, char **argv)
{
    bool detach = false;
    for (int index = 1; index < argc; ++index) {
        const std::string_view argument = argv[index];
        if (argument == "--version")
            return printf("vlaunchd %s\n", TARV_VERSION) < 0;
        if (argument == "--help")
            return fputs(USAGE, stdout) < 0;
        if (argument != "--detach") {
            fprintf(stderr, "vlaunchd: unknown argument: %s\n%s", argv[index], USAGE);
            return 2;
        }
        detach = true;
    }
    if (standard_fds_open() != 0)
        return 1;
    if (detach)
        setsid();
    return serve();
}
