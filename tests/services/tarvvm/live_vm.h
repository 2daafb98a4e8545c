// A real supervisor with a real QEMU and one of the test guests, in a directory of its own.
#pragma once

#include "platform/unique_fd.h"
#include "services/engine/trees.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tarvhv/display/packets.h"
#include "tests/support/service_home.h"

#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

// An answer of the service socket with its descriptors; no tree when there was none.
struct LiveAnswer
{
    JsonTree tree;
    std::vector<UniqueFd> fds;

    std::string status() const { return json_find_str(tree.get(), "status", ""); }
    std::string message() const { return json_find_str(tree.get(), "message", ""); }
};

class LiveVm
{
public:
    // `disk` names a guest; `config` is added to the configuration.
    explicit LiveVm(const std::string &disk, const std::string &config = "");
    ~LiveVm(); // ends what still runs
    LiveVm(const LiveVm &) = delete;
    LiveVm &operator=(const LiveVm &) = delete;

    // Starts another supervisor, and waits until the guest runs.
    void start(const std::vector<std::string> &arguments = {});
    bool startAndRun();
    // Waits for the supervisor to end; its exit status, 128 + signal.
    int wait();

    LiveAnswer ask(const std::string &request) const;
    std::string state() const;
    // A number of the status's body.
    int64_t status(const char *name) const;
    // What the supervisor logged, what it reported, and its configuration.
    std::string log() const { return file_text(file("log/stderr")); }
    std::string report() const { return file_text(file("report")); }
    std::string config() const { return file_text(file("vms/" + m_id + "/config.yaml")); }
    bool socketExists() const { return access(vm_socket(m_id).c_str(), F_OK) == 0; }

    const std::string &id() const { return m_id; }
    pid_t pid() const { return m_pid; }
    ServiceHome &home() { return m_home; }
    std::string file(const std::string &name) const { return m_home.file(name); }
    void write(const std::string &name, const std::string &text) const
    {
        std::ofstream(file(name)) << text;
    }

private:
    ServiceHome m_home;
    std::string m_id;
    pid_t m_pid = -1;
};

// A viewer of one of the VM's screens.
class LiveViewer
{
public:
    explicit LiveViewer(const LiveVm &vm, int screen = 0);

    uint32_t width() const { return m_state ? uint32_t(m_state->buffer().width()) : 0; }
    uint32_t height() const { return m_state ? uint32_t(m_state->buffer().height()) : 0; }
    uint32_t at(uint32_t x, uint32_t y) const;

    void send(uint32_t type, std::initializer_list<int32_t> arguments, int memory = -1);
    void key(int32_t number, bool down) { send(DISPLAY_KEY, {number, down}); }
    // Takes packets and answers damage until the condition holds for the picture.
    bool shows(const std::function<bool()> &condition);
    // Takes the packets that wait; false at the end of the stream.
    bool take();
    uint32_t caps() const { return m_state ? m_state->caps() : 0; }
    // The last pasteboard archive that came.
    const std::string &pasteboard() const { return m_pasteboard; }
    // The reason of the last goodbye, or -1.
    int closedReason() const { return m_closed; }
    // The last pointer image.
    const GuestCursor &cursor() const { return m_cursor; }

private:
    UniqueFd m_channel;
    std::optional<DisplayState> m_state;
    GuestCursor m_cursor;
    std::string m_pasteboard;
    int m_closed = -1;
};
