// A private home for tests of the host library: settings, directories and the log of one process.
#pragma once

#include "tests/support/scratch.h"

class Home
{
public:
    // Made before the first settings lookup of the process, removed at its end.
    static Home &get();

    // What was logged since the last call.
    std::string takeLog();
    // Removes all VMs, images and logs.
    void clear();
    // Writes an executable shell script and points a setting at it.
    void setTool(const char *key, const std::string &script);

private:
    Home();
    ScratchDirectory m_scratch;

public:
    const std::filesystem::path dir{m_scratch.path()};
    const std::filesystem::path vms{dir / "vms"}, images{dir / "images"}, logs{dir / "logs"};
};
