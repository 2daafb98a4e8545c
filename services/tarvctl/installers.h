// The images that VMs can be made from, as found on this machine.
#pragma once

#include "services/tarvctl/answer.h"

#include <string>
#include <vector>

struct Installer
{
    std::string version, build, url, path;
    int64_t modified = 0;
};

// Images in the image library (those of VMs aside) and the download folder, newest first.
std::vector<Installer> find_installers();
// Body: a list of {"version","build","url"}.
Answer list_installers();
// The path of the newest; fails when there is none.
std::string latest_installer();
