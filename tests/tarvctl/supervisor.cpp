// Stands in for the supervisor of a VM: it serves the VM's socket, and behaves as the VM's name
// asks for: "plain", "slow" (starts slowly), "fail" (does not start), "hang" (accepts and never
// answers).
#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

std::string socket_path;

[[noreturn]] void leave(int status, const std::string &message)
{
    if (!socket_path.empty())
        unlink(socket_path.c_str());
    if (const char *path = getenv("TARV_JOB_REPORT")) {
        const std::string name = path;
        std::ofstream(name + ".new")
            << "{\"status\":" << status << ",\"message\":\"" << message << "\"}";
        rename((name + ".new").c_str(), path);
    }
    _exit(status);
}

struct RequestFree
{
    void operator()(cli2_request *request) const { cli2_request_free(request); }
};

// The command of the next client, or "" when it left.
std::string receive(int fd)
{
    std::unique_ptr<cli2_request, RequestFree> request(cli2_request_new());
    for (int state = 0; state == 0;) {
        pollfd wait = {fd, POLLIN, 0};
        char bytes[4096];
        size_t used;
        poll(&wait, 1, 5000);
        const ssize_t got = cli2_recv(fd, bytes, sizeof bytes, 0);
        if (got <= 0)
            return "";
        state = cli2_request_feed(request.get(), bytes, static_cast<size_t>(got), &used, nullptr);
    }
    return cli2_request_command(request.get());
}

void answer_status(int fd, const char *state)
{
    JsonOwner body(json_mkobject());
    json_append_int64(body.get(), "pid", getpid());
    json_append_str(body.get(), "state", state);
    cli2_answer(fd, body.get(), nullptr, 0);
}

// The saved state that suspending leaves.
void suspend(struct vm *vm, const std::string &id)
{
    std::ofstream(std::string(getenv("IMAGES")) + "/" + id + "-state") << "state";
    vm_write_state(vm, (id + "-state").c_str());
}

void serve(int listener, struct vm *vm, const std::string &id, const std::string &name)
{
    for (int asked = 0;;) {
        pollfd wait = {listener, POLLIN, 0};
        poll(&wait, 1, -1);
        const int fd = cli2_accept(listener);
        if (fd < 0 || name == "hang")
            continue; // kept open, never answered
        const std::string command = receive(fd);
        if (command == "status")
            answer_status(fd, name == "slow" && ++asked < 5 ? "starting" : "running");
        else if (!command.empty())
            cli2_answer(fd, nullptr, nullptr, 0);
        if (command == "suspend")
            suspend(vm, id);
        close(fd);
        if (command == "stop" || command == "suspend")
            leave(0, "");
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::string id = argv[argc - 1];
    std::unique_ptr<struct vmlib, decltype(&vmlib_close)> library(vmlib_open(nullptr), vmlib_close);
    VmOwner vm(vmlib_get(library.get(), id.c_str(), nullptr));
    KvOwner record(vm ? vm_read_config(vm.get()) : nullptr);
    const std::string name = record ? kv_get_str(record.get(), "name", "") : "";
    if (std::string(getenv("SUPERVISOR_ARGUMENTS") ? getenv("SUPERVISOR_ARGUMENTS") : "") != "")
        for (std::ofstream file(getenv("SUPERVISOR_ARGUMENTS")); argc > 1; --argc)
            file << *++argv << "\n";
    if (name == "fail")
        leave(1, "the disk has gone for a walk");
    signal(SIGTERM, [](int) { leave(0, ""); });
    socket_path = "/tmp/com.quelda.tarvhv." + id + "." + std::to_string(getuid()) + ".sock";
    const int listener = cli2_listen(socket_path.c_str());
    if (listener < 0)
        leave(1, "no socket");
    serve(listener, vm.get(), id, name);
}
