#include "tests/tarvvm/live_vm.h"

#include "hostlib/utils/utils.h"
#include "platform/memory.h"
#include "tarvhv/cli2.h"
#include "tests/guest/guests.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <uuid/uuid.h>

bool wait_until(const std::function<bool()> &condition, int seconds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

uint64_t private_memory(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::string name;
    for (uint64_t kilobytes = 0; file >> name; file.ignore(1000, '\n'))
        if (name == "RssAnon:" && file >> kilobytes)
            return kilobytes * 1024;
    return 0;
}

LiveVm::LiveVm(const std::string &disk, const std::string &config, const std::string &settings)
{
    uuid_t uuid;
    char text[37];
    uuid_generate(uuid);
    uuid_unparse_lower(uuid, text);
    m_id = text;
    std::filesystem::create_directories(m_directory.path("images"));
    const std::filesystem::path guest = TARV_GUEST_DIR "/" + disk + ".img";
    if (std::filesystem::exists(guest))
        std::filesystem::copy_file(guest, m_directory.path("images/disk.img"));
    m_directory.write("vms/" + m_id + "/config.yaml",
                      "name: live\nram: {size: 67108864}\nhard_drives:\n- {file: disk.img}\n" +
                          config);
    std::string ini = "[tarv]\nengine_accel = tcg\nstop_wait = 1\n";
    for (const auto &[key, value] :
         {std::pair("vm_lib_dir", "vms"), std::pair("img_lib_dir", "images"),
          std::pair("log_dir", "logs"), std::pair("vm_lock_dir", "locks")})
        ini += std::string(key) + " = " + m_directory.path(value) + "\n";
    m_directory.write("settings.ini", ini + settings);
}

LiveVm::~LiveVm()
{
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        wait();
    }
    unlink(socketPath().c_str());
    if (testing::Test::HasFailure())
        std::cerr << log();
}

void LiveVm::start(const std::vector<std::string> &arguments)
{
    std::vector<std::string> words = {TARVVM_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.push_back(m_id);
    std::vector<std::string> variables = {"PATH=/usr/bin:/bin", "HOME=" + m_directory.path(),
                                          "TARV_CONFIG_PATH=" + m_directory.path("settings.ini"),
                                          "TARV_JOB_REPORT=" + m_directory.path("report"),
                                          "DBUS_SESSION_BUS_ADDRESS=unix:path=" +
                                              m_directory.path("no-bus")};
    std::vector<char *> argv, envp;
    for (std::string &word : words)
        argv.push_back(word.data());
    for (std::string &variable : variables)
        envp.push_back(variable.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, m_directory.path("stderr").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    std::error_code ignored;
    std::filesystem::remove(m_directory.path("report"), ignored);
    EXPECT_EQ(posix_spawn(&m_pid, TARVVM_PROGRAM, &actions, nullptr, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
}

bool LiveVm::startAndRun()
{
    start();
    return wait_until([this] { return state() == "running"; });
}

int LiveVm::wait()
{
    int status = -1;
    pid_t ended = 0;
    wait_until([&] { return (ended = waitpid(m_pid, &status, WNOHANG)) != 0; });
    if (ended != m_pid)
        return -1;
    m_pid = -1;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

LiveAnswer LiveVm::ask(const std::string &request) const
{
    LiveAnswer answer;
    const UniqueFd socket(cli2_connect(socketPath().c_str(), nullptr));
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

std::string LiveVm::log() const
{
    return m_directory.read("stderr");
}

std::string LiveVm::report() const
{
    return m_directory.read("report");
}

std::string LiveVm::config() const
{
    return m_directory.read("vms/" + m_id + "/config.yaml");
}

std::string LiveVm::socketPath() const
{
    return "/tmp/com.quelda.tarvhv." + m_id + "." + std::to_string(getuid()) + ".sock";
}

bool LiveVm::socketExists() const
{
    return access(socketPath().c_str(), F_OK) == 0;
}

// ---- viewer -------------------------------------------------------------------------------------

LiveViewer::LiveViewer(const LiveVm &vm)
{
    LiveAnswer answer = vm.ask("display\r\n{\"index\":0}");
    EXPECT_EQ(answer.status(), "OK") << answer.message();
    if (answer.fds.size() != 2)
        return;
    EXPECT_EQ(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, answer.fds[0].get(), 0),
              MAP_FAILED)
        << "a viewer must not be able to write";
    EXPECT_TRUE(map(std::move(answer.fds[0])));
    m_channel = std::move(answer.fds[1]);
}

LiveViewer::~LiveViewer()
{
    if (m_control)
        munmap(const_cast<display_fbctl *>(m_control), m_size);
}

bool LiveViewer::map(UniqueFd memory)
{
    const int64_t size = platform_memory_size(memory.get(), /*sealed=*/true);
    if (size < int64_t(DISPLAY_PIXELS_OFFSET))
        return false;
    void *mapping = mmap(nullptr, size_t(size), PROT_READ, MAP_SHARED, memory.get(), 0);
    if (mapping == MAP_FAILED)
        return false;
    if (m_control)
        munmap(const_cast<display_fbctl *>(m_control), m_size);
    m_control = static_cast<const display_fbctl *>(mapping);
    m_size = size_t(size);
    return m_control->magic == DISPLAY_MAGIC && m_control->version == DISPLAY_VERSION;
}

uint32_t LiveViewer::at(uint32_t x, uint32_t y) const
{
    uint32_t pixel;
    std::memcpy(&pixel,
                reinterpret_cast<const uint8_t *>(m_control) + DISPLAY_PIXELS_OFFSET +
                    size_t(y) * m_control->stride + size_t(x) * 4,
                sizeof pixel);
    return pixel & 0xffffff;
}

int LiveViewer::frameNumber() const
{
    int number = 0;
    for (int bit = 0; bit < GUEST_COUNTER_BITS; bit++)
        number |= int(at(uint32_t(bit * GUEST_COUNTER_STEP + 8), 8) & 1) << bit;
    return number;
}

void LiveViewer::send(uint32_t type, std::initializer_list<int32_t> arguments)
{
    display_packet packet{type, {}};
    std::copy(arguments.begin(), arguments.end(), packet.arg);
    ::send(m_channel.get(), &packet, sizeof packet, MSG_NOSIGNAL);
}

bool LiveViewer::take()
{
    for (;;) {
        display_packet packet;
        iovec part{&packet, sizeof packet};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t length = recvmsg(m_channel.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (length != ssize_t(sizeof packet))
            return length < 0 && errno == EAGAIN;
        UniqueFd memory;
        if (const cmsghdr *header = CMSG_FIRSTHDR(&message)) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
            memory.reset(fd);
        }
        if (packet.type == DISPLAY_DAMAGE) {
            m_damage++;
            if (packet.arg[5])
                send(DISPLAY_DAMAGE_DONE, {packet.arg[4]});
        } else if (packet.type == DISPLAY_MODE) {
            EXPECT_TRUE(map(std::move(memory)));
        } else if (packet.type == DISPLAY_CLOSED) {
            m_closed = packet.arg[0];
        }
    }
}

bool LiveViewer::shows(const std::function<bool()> &condition)
{
    return wait_until([&] { return take() && condition(); });
}
