// Stands in for the supervisor of a VM: it serves the VM's socket. One of the name "fail" does not
// start.
#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

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

// The command of a client, which sends its request in one piece; "" when it left.
std::string receive(int fd)
{
    pollfd wait = {fd, POLLIN, 0};
    char bytes[4096];
    poll(&wait, 1, 5000);
    const ssize_t got = cli2_recv(fd, bytes, sizeof bytes, 0);
    const std::string request(bytes, got > 0 ? size_t(got) : 0);
    return request.substr(0, request.find('\r'));
}

void answer_status(int fd)
{
    JsonOwner body(json_mkobject());
    json_append_int64(body.get(), "pid", getpid());
    json_append_str(body.get(), "state", "running");
    cli2_answer(fd, body.get(), nullptr, 0);
}

// The saved state that suspending leaves.
void suspend(struct vm *vm, const std::string &id)
{
    std::ofstream(std::string(getenv("IMAGES")) + "/" + id + "-state") << "state";
    vm_write_state(vm, (id + "-state").c_str());
}

void serve(int listener, struct vm *vm, const std::string &id)
{
    for (;;) {
        pollfd wait = {listener, POLLIN, 0};
        poll(&wait, 1, -1);
        const UniqueFd client(cli2_accept(listener));
        const std::string command = client ? receive(client.get()) : "";
        if (command == "suspend")
            suspend(vm, id);
        if (command == "status")
            answer_status(client.get());
        else if (!command.empty())
            cli2_answer(client.get(), nullptr, nullptr, 0);
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
    for (std::ofstream file(getenv("SUPERVISOR_ARGUMENTS")); argc > 1; --argc)
        file << *++argv << "\n";
    if (name == "fail")
        leave(1, "the disk has gone for a walk");
    signal(SIGTERM, [](int) { leave(0, ""); });
    socket_path = "/tmp/com.quelda.tarvhv." + id + "." + std::to_string(getuid()) + ".sock";
    const int listener = cli2_listen(socket_path.c_str());
    if (listener < 0)
        leave(1, "no socket");
    serve(listener, vm.get(), id);
}
