// Makes sure that the launch service runs, for the programs that need it.
#pragma once

#include "services/failure.h"

#include <string>
#include <vector>

// Answers at once when the launch service listens; else starts the program of the setting
// "vlaunchd_executable" in a session of its own and waits, up to 15 s, until it listens. Any
// number of processes may do this at once: one starts it. The failure's error is that of the
// system, ECHILD where the service ended at once, ETIMEDOUT where it does not listen.
ServiceFailure vlaunchd_ensure();

// This process's environment as "NAME=value" texts, without what concerns one run of the
// controller alone: neither the launch service nor a job may inherit that.
std::vector<std::string> vlaunchd_environment();
