#include "hostlib/vms/vms.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "hostlib/vms/questions.h"
#include "platform/process.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/places.h"
#include "tarvhv/cli2/vm_status.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// How long a service may take to answer a question about a VM, and to acknowledge a stop.
constexpr std::chrono::seconds ANSWER_PATIENCE{5};
constexpr timeval ANSWER_TIMEOUT{ANSWER_PATIENCE.count(), 0};
constexpr timeval STOP_TIMEOUT{30, 0};

// The request that names the VM's job: a quoted label of at most `Size` - 1 characters.
template <size_t Size>
std::string quoted_label(const char *id)
{
    return ("\"" + place_vm_job(id) + "\"").substr(0, Size - 1);
}

void log_unavailable(int error)
{
    dprintf(log_fd, "vms: %s: vlaunchd service unavailable: %s\r\n", vms_launch_socket(),
            strerror(error));
}

void log_unasked(const char *id, const char *task, int error)
{
    dprintf(log_fd, "vms: %s: failed to %s: connection failed: %s\r\n", id, task, strerror(error));
}

// What an answer says went wrong. `error` is the errno of reading it.
const char *reason(const struct json *answer, int error)
{
    const auto code = static_cast<int>(json_find_int64(answer, "error", error));
    return json_find_str(answer, "message", strerror(code));
}

void set_process(struct kv *status, int fd, const char *id)
{
    const pid_t pid = platform_peer_pid(fd);
    if (pid < 0) {
        dprintf(log_fd, "vms: %s: failed to get pid: %s\r\n", id, strerror(errno));
        return;
    }
    kv_set_type(status, "pid", pid, KV_INT);
    const int64_t start = platform_process_start(pid);
    if (start >= 0)
        kv_set_type(status, "start_date", start, KV_DATE);
}

void set_malfunction(struct kv *status, const char *id, const char *why)
{
    dprintf(log_fd, "vms: %s: failed to recv status: %s\r\n", id, why);
    kv_set_type(status, "status", vm_status_word(VmStatus::malfunction), KV_CONST);
}

// Lets the supervisor know and waits for it to acknowledge, or to go.
void stop_service(const char *id)
{
    const UniqueFd fd(vms_connect(id, "stop"));
    if (!fd)
        return;
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &STOP_TIMEOUT, sizeof STOP_TIMEOUT);
    char acknowledgement[1024];
    cli2_recv(fd.get(), acknowledgement, sizeof acknowledgement, 0);
}

} // namespace

const char *vms_launch_socket()
{
    // Never destroyed: threads that ask may outlive the end of main().
    static const auto *const path =
        new std::string(place_launch_socket(config_get_path("vlaunch_sock")));
    return path->c_str();
}

int vconnect(const char *command)
{
    const int fd = cli2_connect(vms_launch_socket(), command);
    if (fd < 0) {
        const int error = errno;
        log_unavailable(error);
        errno = error;
    }
    return fd;
}

int vms_connect(const char *id, const char *command)
{
    if (!id) {
        errno = ESRCH;
        return -1;
    }
    return cli2_connect(place_vm_socket(id).c_str(), command);
}

Exchange vms_status_question(const char *id)
{
    return Exchange(place_vm_socket(id), exchange_request("status"), ANSWER_PATIENCE);
}

struct kv *vms_status_of(const char *id, Exchange &ended)
{
    // One that has no room for another connection is there, and too busy to say how it is.
    if (!ended.isServed())
        return nullptr;
    KvOwner status(kv_new_type(KV_MAP));
    if (!status)
        return nullptr;
    if (ended.fd() >= 0)
        set_process(status.get(), ended.fd(), id);
    const JsonOwner answer = ended.takeAnswer();
    if (!answer) {
        // The VM ended between accepting and answering.
        if (ended.error() == ENOTCONN || ended.error() == ENOENT)
            return nullptr;
        set_malfunction(status.get(), id, strerror(ended.error()));
    } else if (strcasecmp(json_find_str(answer.get(), "status", "ERROR"), "OK") != 0) {
        set_malfunction(status.get(), id, json_find_str(answer.get(), "message", "unknown"));
    } else {
        kv_set_json(status.get(), json_find_member(answer.get(), "body"));
        kv_set_type(status.get(), "status", vm_status_word(VmStatus::running), KV_CONST);
    }
    return status.release();
}

struct kv *vms_status(const char *id)
{
    if (!id)
        return nullptr;
    Exchange exchange = vms_status_question(id);
    exchange_run(exchange);
    return vms_status_of(id, exchange);
}

Exchange vms_exit_status_question(const char *id)
{
    return Exchange(vms_launch_socket(), exchange_request("status", quoted_label<128>(id)),
                    ANSWER_PATIENCE);
}

int vms_exit_status_of(const char *id, Exchange &ended)
{
    if (!ended.isSent()) {
        log_unavailable(ended.error());
        log_unasked(id, "request status", ended.error());
        errno = ended.error();
        return -1;
    }
    const JsonOwner answer = ended.takeAnswer();
    // Unlike in vms_status, "OK" is compared with its case.
    if (strcmp(json_find_str(answer.get(), "status", ""), "OK") != 0 &&
        json_find_int64(answer.get(), "error", 0) != CLI2_ERROR_JOB_ENDED)
        dprintf(log_fd, "vms: %s: failed to get status: %s\r\n", id,
                reason(answer.get(), ended.error()));
    return static_cast<int>(json_find_int64(answer.get(), "body.status", 0));
}

int vms_exit_status(const char *id)
{
    if (!id) {
        errno = ECHILD;
        return -1;
    }
    Exchange exchange = vms_exit_status_question(id);
    exchange_run(exchange);
    return vms_exit_status_of(id, exchange);
}

int vms_wait(const char *id, unsigned timeout_s)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    if (const KvOwner status{vms_status(id)}) {
        const auto pid = static_cast<pid_t>(kv_get_int(status.get(), "pid", 0));
        while (pid_alive(pid)) {
            if (timeout_s > 0 && Clock::now() - start >= std::chrono::seconds(timeout_s)) {
                errno = ETIMEDOUT;
                return -1;
            }
            usleep(100000);
        }
    }
    return vms_exit_status(id);
}

int vms_stop(const char *id)
{
    if (!id) {
        errno = ESRCH;
        return -1;
    }
    UniqueFd fd(vconnect("remove"));
    if (!fd) {
        const int error = errno;
        log_unasked(id, "remove job", error);
        errno = error;
        return -1;
    }
    const std::string label = quoted_label<1024>(id);
    cli2_send(fd.get(), label.data(), label.size(), 0);
    errno = 0;
    const JsonOwner answer(cli2_recv_json(fd.get()));
    const int error = errno;
    fd.reset();
    if (strcmp(json_find_str(answer.get(), "status", ""), "OK") != 0) {
        dprintf(log_fd, "vms: %s: failed to remove job: %s\r\n", id, reason(answer.get(), error));
        errno = error ? error : EPROTO;
        return -1;
    }
    if (config_get_platform() == 2)
        stop_service(id);
    unlink(place_vm_socket(id).c_str());
    return 0;
}

pid_t vms_getpid(const char *id)
{
    if (!id) {
        errno = ESRCH;
        return -1;
    }
    const UniqueFd fd(vms_connect(id, nullptr));
    if (!fd)
        return -1;
    if (config_get_platform() != 1) {
        cli2_send(fd.get(), "status\r\n", 8, 0);
        const JsonOwner answer(cli2_recv_json_to(fd.get(), ANSWER_TIMEOUT));
        return static_cast<pid_t>(json_find_int64(answer.get(), "body.pid", -1));
    }
    const pid_t pid = platform_peer_pid(fd.get());
    if (pid < 0)
        dprintf(log_fd, "vms: %s: failed to get pid: %s\r\n", id, strerror(errno));
    return pid;
}

int vms_isrunning(const char *id)
{
    return UniqueFd(vms_connect(id, nullptr)) ? 1 : 0;
}
