// Where the services of this user are reached, and under which names. This is the only place that
// knows how those paths and names are put together.
#pragma once

#include <string>
#include <string_view>

// The socket of a VM's supervisor. The user in its name is the real one, so that the programs of
// one user meet there whatever rights some of them run with.
std::string place_vm_socket(std::string_view id);
// The name of a VM's job at the launch service, and the VM that such a name stands for ("" where it
// is not the name of a VM's job).
std::string place_vm_job(std::string_view id);
std::string place_vm_of_job(std::string_view label);
// The socket of the launch service: what the settings say, else (null or "") the system's own
// place.
std::string place_launch_socket(const char *setting);
