#include "tests/support/service_home.h"

#include "tests/support/scratch.h"

#include <csignal>
#include <thread>

#include <spawn.h>
#include <sys/un.h>

using namespace std::chrono_literals;

bool wait_for(const std::function<bool()> &condition, std::chrono::seconds patience)
{
    for (auto end = std::chrono::steady_clock::now() + patience; !condition();) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

std::vector<pid_t> processes_with(const std::string &text)
{
    std::vector<pid_t> result;
    for (const auto &entry : std::filesystem::directory_iterator("/proc"))
        if (const pid_t pid = atoi(entry.path().filename().c_str());
            pid > 0 && file_text(entry.path() / "cmdline").find(text) != std::string::npos)
            result.push_back(pid);
    return result;
}

std::string vm_socket(const std::string &id)
{
    return "/tmp/com.quelda.tarvhv." + id + "." + std::to_string(getuid()) + ".sock";
}

std::string file_text(const std::string &path)
{
    return read_file(path);
}

ServiceHome::ServiceHome()
{
    // Socket paths are short, so not below a deep build folder.
    std::string pattern = "/tmp/tarv-test.XXXXXX";
    if (!mkdtemp(pattern.data()))
        abort();
    m_path = pattern;
    for (const char *name : {"vms", "images", "log", "support", "home"})
        std::filesystem::create_directory(file(name));
    m_settings = {{"vm_lib_dir", file("vms")},
                  {"img_lib_dir", file("images")},
                  {"log_dir", file("log")},
                  {"vlaunch_sock", file("vlaunchd")},
                  {"vlaunchd_executable", VLAUNCHD_PROGRAM},
                  {"engine_accel", "tcg"},
                  {"stop_wait", "1"}};
    environment = {{"PATH", "/usr/bin:/bin"},
                   {"HOME", file("home")},
                   {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + file("no-bus")},
                   {"TARV_CONFIG_PATH", file("settings.ini")},
                   {"TARV_SUPPORT_DIR", file("support")}};
    write_settings();
}

ServiceHome::~ServiceHome()
{
    // What the service lists as running was started by this test.
    const std::string list = ask("list\r\n");
    const std::string mark = "\"pid\":";
    for (size_t at = 0; (at = list.find(mark, at)) != std::string::npos;) {
        at += mark.size();
        if (const long pid = strtol(list.c_str() + at, nullptr, 10); pid > 1)
            kill(static_cast<pid_t>(pid), SIGKILL);
    }
    end_vlaunchd(SIGKILL);
    kill_service(); // one that was started on demand
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

void ServiceHome::set(const std::string &key, const std::string &value)
{
    m_settings[key] = value;
    write_settings();
}

void ServiceHome::write_settings() const
{
    std::ofstream settings(file("settings.ini"));
    settings << "[tarv]\n";
    for (const auto &[key, value] : m_settings)
        settings << key << " = " << value << "\n";
}

pid_t ServiceHome::spawn(const std::vector<std::string> &argv, int out, int err) const
{
    std::vector<std::string> texts = argv, variables;
    for (const auto &[name, value] : environment)
        variables.push_back(name + "=" + value);
    // The sanitizers' own settings stay in force.
    for (const char *name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"})
        if (const char *value = getenv(name))
            variables.push_back(std::string(name) + "=" + value);
    std::vector<char *> arguments, envp;
    for (std::string &text : texts)
        arguments.push_back(text.data());
    for (std::string &text : variables)
        envp.push_back(text.data());
    arguments.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    if (out >= 0)
        posix_spawn_file_actions_adddup2(&files, out, 1);
    if (err >= 0)
        posix_spawn_file_actions_adddup2(&files, err, 2);
    pid_t pid = -1;
    const int error =
        posix_spawn(&pid, arguments[0], &files, nullptr, arguments.data(), envp.data());
    posix_spawn_file_actions_destroy(&files);
    return error == 0 ? pid : -1;
}

ProgramResult ServiceHome::run(const std::vector<std::string> &argv) const
{
    ProgramResult result;
    const std::string out = file("run.out"), err = file("run.err");
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
    const UniqueFd out_fd(open(out.c_str(), flags, 0600)), err_fd(open(err.c_str(), flags, 0600));
    const pid_t pid = spawn(argv, out_fd.get(), err_fd.get());
    if (pid > 0)
        result.status = wait_child(pid);
    result.out = file_text(out);
    result.err = file_text(err);
    return result;
}

pid_t ServiceHome::start_vlaunchd()
{
    const UniqueFd log(
        open(file("log/vlaunchd.log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    m_vlaunchd = spawn({VLAUNCHD_PROGRAM}, log.get(), log.get());
    wait_for([&] { return bool(UniqueFd(connect_vlaunchd())); });
    return m_vlaunchd;
}

void ServiceHome::end_vlaunchd(int signal_number)
{
    if (m_vlaunchd <= 0)
        return;
    kill(m_vlaunchd, signal_number);
    waitpid(m_vlaunchd, nullptr, 0);
    m_vlaunchd = -1;
}

void ServiceHome::kill_service()
{
    const UniqueFd fd(connect_vlaunchd());
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.pid > 1)
        kill(peer.pid, SIGKILL);
    char byte;
    while (recv(fd.get(), &byte, 1, 0) > 0)
        ;
}

int ServiceHome::connect_vlaunchd() const
{
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    file("vlaunchd").copy(address.sun_path, sizeof address.sun_path - 1);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto *where = reinterpret_cast<sockaddr *>(&address);
    return connect(fd.get(), where, sizeof address) == 0 ? fd.release() : -1;
}

std::string ServiceHome::ask(const std::string &request) const
{
    const UniqueFd fd(connect_vlaunchd());
    std::string answer;
    char bytes[4096];
    if (send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
        const timeval patience = {.tv_sec = 60, .tv_usec = 0};
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        for (ssize_t got; (got = recv(fd.get(), bytes, sizeof bytes, 0)) > 0;)
            answer.append(bytes, static_cast<size_t>(got));
    }
    return answer;
}
