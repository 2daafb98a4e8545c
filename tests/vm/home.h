// A private home for tests of the host library: settings, directories and the log of one process.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

class Home
{
public:
    // Made before the first settings lookup of the process, removed at its end.
    static Home &get();
    ~Home();

    // What was logged since the last call.
    std::string takeLog();
    // Removes all VMs, images and logs.
    void clear();
    // Writes an executable shell script and points a setting at it.
    void setTool(const char *key, const std::string &script);

    std::filesystem::path dir, vms, images, logs;

private:
    Home();
};

void write_file(const std::filesystem::path &path, const std::string &text);
std::string read_file(const std::filesystem::path &path);
// Runs `work` in a child process; the status it returns or was ended by, as a shell has it.
pid_t run_child(const std::function<int()> &work);
int wait_child(pid_t pid);
