#include "tests/services/tarvvm/live_vm.h"

#include "tarvhv/cli2.h"
#include "tarvhv/cli2/io.h"
#include "tarvhv/display/packet_socket.h"
#include "tests/guest/guests.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/wait.h>
#include <unistd.h>

LiveVm::LiveVm(const std::string &disk, const std::string &config)
    : m_id(file_text("/proc/sys/kernel/random/uuid").substr(0, 36))
{
    const std::filesystem::path guest = TARV_GUEST_DIR "/" + disk + ".img";
    if (std::filesystem::exists(guest))
        std::filesystem::copy_file(guest, file("images/disk.img"));
    std::filesystem::create_directory(file("vms/" + m_id));
    const std::string ram = disk == "linux" ? "536870912" : "67108864";
    write("vms/" + m_id + "/config.yaml",
          "name: live\nram: {size: " + ram + "}\nhard_drives:\n- {file: disk.img}\n" + config);
    m_home.set("vm_lock_dir", file("locks"));
    m_home.environment["TARV_JOB_REPORT"] = file("report");
    m_home.environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + file("no-bus");
}

LiveVm::~LiveVm()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        wait();
    }
    unlink(vm_socket(m_id).c_str());
    if (testing::Test::HasFailure())
        std::cerr << log();
}

void LiveVm::start(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words = {TARVVM_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.push_back(m_id);
    std::filesystem::remove(file("report"));
    const UniqueFd log(
        open(file("log/stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    m_pid = m_home.spawn(words, -1, log.get());
    EXPECT_GT(m_pid, 0);
}

bool LiveVm::startAndRun()
{
    start();
    return wait_for([this] { return state() == "running"; });
}

int LiveVm::wait()
{
    int status = -1;
    pid_t ended = 0;
    wait_for([&] { return (ended = waitpid(m_pid, &status, WNOHANG)) != 0; });
    if (ended != m_pid)
        return -1;
    m_pid = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

LiveAnswer LiveVm::ask(const std::string &request) const
{
    LiveAnswer answer;
    const UniqueFd socket(cli2_connect(vm_socket(m_id).c_str(), nullptr));
    if (!socket || cli2_send(socket.get(), request.data(), request.size(), 0) != 0)
        return answer;
    int fds[4];
    size_t count = 4;
    answer.tree.reset(cli2_recv_json_fds(socket.get(), {60, 0}, fds, &count));
    for (size_t i = 0; answer.tree && i < count; i++)
        answer.fds.emplace_back(fds[i]);
    return answer;
}

std::string LiveVm::state() const
{
    return json_find_str(ask("status\r\n").tree.get(), "body.state", "");
}

int64_t LiveVm::status(const char *name) const
{
    return json_find_int64(ask("status\r\n").tree.get(), (std::string("body.") + name).c_str(), -1);
}

// ---- viewer -------------------------------------------------------------------------------------

LiveViewer::LiveViewer(const LiveVm &vm, int screen)
{
    LiveAnswer answer = vm.ask("display\r\n{\"index\":" + std::to_string(screen) + "}");
    EXPECT_EQ(answer.status(), "OK") << answer.message();
    if (answer.fds.size() != 2)
        return;
    EXPECT_FALSE(MappedMemory(answer.fds[0].get(), 4096, Mapping::writable))
        << "a viewer must not be able to write";
    std::optional<MappedFrame> frame = MappedFrame::map(answer.fds[0].get());
    EXPECT_TRUE(frame);
    if (frame)
        m_state.emplace(std::move(*frame), false, false,
                        uint32_t(json_find_int64(answer.tree.get(), "body.caps", -1)), true);
    m_channel = std::move(answer.fds[1]);
}

uint32_t LiveViewer::at(uint32_t x, uint32_t y) const
{
    const MappedFrame &frame = m_state->buffer();
    uint32_t pixel;
    std::memcpy(&pixel, frame.pixels() + size_t(y) * size_t(frame.stride()) + size_t(x) * 4,
                sizeof pixel);
    return pixel & 0xffffff;
}

void LiveViewer::send(uint32_t type, std::initializer_list<int32_t> arguments, int memory)
{
    const display_packet packet = display_packet_of(type, arguments);
    cli2_send_fds(m_channel.get(), &packet, sizeof packet, 0, &memory, memory >= 0 ? 1 : 0);
}

bool LiveViewer::take()
{
    for (;;) {
        display_packet packet;
        std::vector<UniqueFd> fds;
        const ssize_t length =
            receive_with_descriptors(m_channel.get(), &packet, sizeof packet, &fds);
        if (length != ssize_t(sizeof packet))
            return length < 0 && errno == EAGAIN;
        EXPECT_TRUE(m_state->feed(packet, fds.empty() ? UniqueFd() : std::move(fds[0])))
            << m_state->what();
        if (packet.type == DISPLAY_CLOSED)
            m_closed = packet.arg[0];
        if (const std::optional<int32_t> serial = m_state->takeSerial())
            send(DISPLAY_DAMAGE_DONE, {*serial});
        DisplayChanges changes = m_state->takeChanges();
        if (changes.cursor)
            m_cursor = std::move(*changes.cursor);
        if (changes.pasteboard)
            m_pasteboard = std::move(*changes.pasteboard);
    }
}

bool LiveViewer::shows(const std::function<bool()> &condition)
{
    return wait_for([&] { return take() && condition(); });
}
