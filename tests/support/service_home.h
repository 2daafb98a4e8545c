// A private home for tests of the services: directories, settings, and programs that are run in it.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

// Waits until the condition holds; false after a generous deadline.
bool wait_for(const std::function<bool()> &condition,
              std::chrono::seconds patience = std::chrono::seconds(60));

struct ProgramResult
{
    int status = -1; // exit status, or 128 + signal
    std::string out, err;
};

class ServiceHome
{
public:
    // Makes the directories and writes settings.ini; settings for all paths of the services.
    ServiceHome();
    // Ends the launch service, and every job that it still knows.
    ~ServiceHome();
    ServiceHome(const ServiceHome &) = delete;
    ServiceHome &operator=(const ServiceHome &) = delete;

    const std::string &path() const { return m_path; }
    std::string file(const std::string &name) const { return m_path + "/" + name; }
    // Adds a setting. For programs that are started afterwards.
    void set(const std::string &key, const std::string &value);
    // Environment of programs started afterwards, on top of the fixed one.
    std::map<std::string, std::string> environment;

    pid_t spawn(const std::vector<std::string> &argv, int out = -1, int err = -1) const;
    ProgramResult run(const std::vector<std::string> &argv) const;

    // Starts the launch service and waits until it listens. Its pid.
    pid_t start_vlaunchd();
    // Sends a signal and waits for its end.
    void end_vlaunchd(int signal_number);
    // Kills whichever launch service listens, and waits until it is gone.
    void kill_service();
    // One request to the launch service; the text of the answer, "" when there is none.
    std::string ask(const std::string &request) const;
    int connect_vlaunchd() const;

private:
    void write_settings() const;

    std::string m_path;
    std::map<std::string, std::string> m_settings;
    pid_t m_vlaunchd = -1;
};

// The processes whose command line holds a text, as an identifier.
std::vector<pid_t> processes_with(const std::string &text);
// The service socket of a VM.
std::string vm_socket(const std::string &id);
// The whole of a small file, "" when absent.
std::string file_text(const std::string &path);
