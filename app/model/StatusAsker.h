// The one thread on which the application asks supervisors and the launch service what VMs are
// doing.
#pragma once

#include <QString>

#include <functional>

// Asks for a VM's status: "running", "malfunction" or "failed", or null when it rests. `answered`
// is called once, on that thread. A higher priority goes first. Any number of VMs may be asked at
// once: each is a question of the same poll, and a silent supervisor holds up nothing but its own.
// Any thread, once the settings have been read.
void askStatus(const QString &vmid, int priority, std::function<void(const QString &)> answered);
