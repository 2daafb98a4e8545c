#include "services/tarvctl/viewer.h"

#include "services/tarvctl/answer.h"
#include "services/tarvctl/service.h"
#include "services/vlaunchd/ondemand.h"
#include "tarvhv/cli2/places.h"

#include <cstdlib>
#include <string_view>

#include <csignal>

#include <fcntl.h>
#include <spawn.h>

namespace {

// The text with all but letters, digits and the given bytes percent-encoded.
std::string percent_encoded(std::string_view text, std::string_view kept)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char byte : text) {
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || kept.find(byte) != kept.npos;
        const auto value = static_cast<unsigned char>(byte);
        if (plain)
            result += byte;
        else
            result += {'%', digits[value >> 4], digits[value & 15]};
    }
    return result;
}

// Standard descriptors on /dev/null: whoever reads the controller's output must see it end.
class DetachedSpawn
{
public:
    DetachedSpawn()
    {
        posix_spawn_file_actions_init(&m_files);
        posix_spawnattr_init(&m_attributes);
        posix_spawn_file_actions_addopen(&m_files, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&m_files, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&m_files, 1, 2);
        sigset_t defaults;
        sigemptyset(&defaults);
        for (int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE})
            sigaddset(&defaults, number);
        posix_spawnattr_setsigdefault(&m_attributes, &defaults);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    }
    ~DetachedSpawn()
    {
        posix_spawn_file_actions_destroy(&m_files);
        posix_spawnattr_destroy(&m_attributes);
    }
    DetachedSpawn(const DetachedSpawn &) = delete;
    DetachedSpawn &operator=(const DetachedSpawn &) = delete;

    // 0 or an errno.
    int run(std::string program, std::string argument)
    {
        char *argv[] = {program.data(), argument.data(), nullptr};
        std::vector<std::string> environment = vlaunchd_environment();
        std::vector<char *> envp;
        for (std::string &item : environment)
            envp.push_back(item.data());
        envp.push_back(nullptr);
        pid_t pid;
        return posix_spawn(&pid, argv[0], &m_files, &m_attributes, argv, envp.data());
    }

private:
    posix_spawn_file_actions_t m_files;
    posix_spawnattr_t m_attributes;
};

} // namespace

std::string viewer_url(const std::string &id, int display)
{
    return "tarv://" + percent_encoded(place_vm_socket(id), "/.-_") +
           "?vmid=" + percent_encoded(id, ".-_") + "&d=" + std::to_string(display);
}

std::string open_viewer(const std::string &id)
{
    const char *program = getenv("TARV_TARV_VIEWER");
    if (!program || !*program)
        return "TARV_TARV_VIEWER is not set: the screen is not shown";
    if (int error = DetachedSpawn().run(program, viewer_url(id, 0)); error != 0)
        throw system_failure("TARV_TARV_VIEWER: " + std::string(program), error);
    return "";
}
