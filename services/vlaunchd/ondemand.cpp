#include "services/vlaunchd/ondemand.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vms/vms.h"
#include "platform/child.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/unique_fd.h"
#include "platform/watch.h"
#include "services/vlaunchd/holder.h"
#include "tarvhv/cli2/exchange.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto PATIENCE = std::chrono::seconds(15);
// The service answers from memory, between two turns of its loop that write a small file each. One
// that takes so long was stopped, or its disk was.
constexpr std::chrono::seconds HUNG_AFTER{5};
// What a service that lives needs to make its socket again, several times over.
constexpr std::chrono::seconds RENEWAL{2};

void pause_briefly()
{
    usleep(10'000);
}

// Whether a launch service is there, judged by whether it answers the smallest question. A
// connection alone says nothing: the kernel takes it for a service that was stopped.
enum class Health
{
    answers,
    absent, // errno says why
    hangs
};

Health examine(const std::string &path)
{
    Exchange exchange(path, exchange_request("status", "\"\""), HUNG_AFTER);
    if (exchange_run(exchange) == Exchange::Step::done)
        return Health::answers;
    errno = exchange.error();
    return exchange.isServed() && errno == ETIMEDOUT ? Health::hangs : Health::absent;
}

bool listens(const std::string &path)
{
    return examine(path) == Health::answers;
}

// Ends the process that keeps the records but serves nobody, so that another can take its place.
// Its jobs live on and are found again by their records. SIGKILL, since it does not listen to
// anything.
void end_holder(const std::string &path)
{
    pid_t pid = 0;
    const UniqueFd watch = watch_holder(records_path(path), &pid);
    if (!watch || platform_watch_signal(watch.get(), SIGKILL) != 0)
        return;
    dprintf(log_fd, "vlaunchd: the launch service, pid %d, does not answer and is replaced\r\n",
            pid);
    pollfd ended{watch.get(), POLLIN, 0};
    poll(&ended, 1, int(std::chrono::milliseconds(HUNG_AFTER).count()));
}

// Waits for a service that lives without its socket to make that again. False where there is none,
// or it does not.
bool renewed(const std::string &path, Health health)
{
    pid_t pid;
    if (health == Health::hangs || !watch_holder(records_path(path), &pid))
        return false;
    for (const auto deadline = Clock::now() + RENEWAL; Clock::now() < deadline; pause_briefly())
        if (listens(path))
            return true;
    return false;
}

// Waits for the lock that makes one process the starter. The file stays: removing it would let two
// processes hold a lock of the same name.
UniqueFd starter_lock(const std::string &path, Clock::time_point deadline)
{
    for (;;) {
        UniqueFd fd(platform_openat_locked(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK,
                                           FileLock::exclusive, 0600));
        if (fd || (errno != EWOULDBLOCK && errno != EINTR) || Clock::now() > deadline)
            return fd;
        pause_briefly();
    }
}

// Its output: a file in the log directory where there is one, else nowhere.
UniqueFd open_log(std::string &path)
{
    const char *directory = config_get_path("log_dir");
    path = directory ? std::string(directory) + "/vlaunchd.log" : "";
    return UniqueFd(directory ? openx(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)
                              : -1);
}

// Until the new process listens or ends.
ServiceFailure await(const std::string &path, Child &child, const std::string &log,
                     Clock::time_point deadline)
{
    const std::string where = log.empty() ? "" : "; its log is " + log;
    for (int status = 0; !listens(path); pause_briefly()) {
        if (child.ended(&status))
            return {ECHILD, "the launch service ended at once with status " +
                                std::to_string(child_exit_status(status)) + where};
        if (Clock::now() > deadline)
            return {ETIMEDOUT, "the launch service does not listen on " + path + where};
    }
    return {};
}

ServiceFailure start(const std::string &path, Clock::time_point deadline)
{
    const char *program = config_get_path("vlaunchd_executable");
    if (!program)
        return {ENOENT, "setting vlaunchd_executable: not set"};
    std::string log_path;
    UniqueFd log = open_log(log_path);
    Child child;
    if (child.start({.program = program,
                     .arguments = {program, "--detach"},
                     .environment = vlaunchd_environment(),
                     .out = log.get(),
                     .err = log.get()}) != 0)
        return ServiceFailure::of(program);
    ServiceFailure failure = await(path, child, log ? log_path : "", deadline);
    // It serves on without us, and what is slow to listen may do so yet.
    child.release();
    return failure;
}

} // namespace

ServiceFailure vlaunchd_ensure()
{
    const std::string path = vms_launch_socket();
    Health health = examine(path);
    if (health == Health::answers)
        return {};
    // Who hung up without an answer was busy, or has just ended: what follows tells.
    if (health == Health::absent && errno != ENOENT && errno != ECONNREFUSED && errno != ENOTCONN)
        return ServiceFailure::of(path);
    const auto deadline = Clock::now() + PATIENCE;
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0)
        mkdirat_p(AT_FDCWD, path.substr(0, slash).c_str(), 0755);
    UniqueFd lock = starter_lock(path + ".start", deadline);
    if (!lock)
        return ServiceFailure::of(path + ".start");
    // Another may have started or replaced it while the lock was waited for.
    health = examine(path);
    if (health == Health::answers || renewed(path, health))
        return {};
    end_holder(path);
    return listens(path) ? ServiceFailure() : start(path, Clock::now() + PATIENCE);
}

std::vector<std::string> vlaunchd_environment()
{
    std::vector<std::string> result;
    for (char **item = environ; *item; ++item) {
        const std::string_view text = *item;
        bool own = false;
        for (std::string_view name : {"TARV_MACHINE_READABLE=", "TARV_TARV_VIEWER=",
                                      "TARV_DEFAULT_", "TARV_CREATE_INTERACTIVE="})
            own = own || text.starts_with(name);
        if (!own)
            result.emplace_back(text);
    }
    return result;
}
