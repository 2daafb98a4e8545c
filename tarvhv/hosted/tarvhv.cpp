#include "tarvhv/tarvhv.h"

#include "platform/host.h"
#include "tarvhv/display/log.h"
#include "tarvhv/hosted/HostedMachine.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <strings.h>

const char *const TarvVMDidStartNotification = "com.quelda.tarvhv.notification.start";
const char *const TarvVMDidStopNotification = "com.quelda.tarvhv.notification.stop";

namespace {

// What belongs to the main thread.
struct Hosted
{
    std::string supervisor;
    tarvhv_observer observer;
    std::vector<std::unique_ptr<HostedMachine>> machines;

    void tell(const char *name, const std::string &id, bool failed) const
    {
        if (observer)
            observer(name, id, failed);
    }
    // The machine is in the middle of a signal: it goes on the next turn.
    void drop(const HostedMachine *ended)
    {
        const auto found = std::find_if(machines.begin(), machines.end(),
                                        [ended](const auto &each) { return each.get() == ended; });
        if (found == machines.end())
            return;
        found->release()->deleteLater();
        machines.erase(found);
    }
};

// Never destroyed: at exit the kernel ends the supervisors, without a wait for their guests.
Hosted &hosted()
{
    static Hosted &instance = *new Hosted;
    return instance;
}

void watch(HostedMachine *machine)
{
    QObject::connect(machine, &HostedMachine::started, machine, [machine] {
        hosted().tell(TarvVMDidStartNotification, machine->id(), false);
    });
    QObject::connect(machine, &HostedMachine::ended, machine, [machine](bool failed) {
        const std::string id = machine->id();
        hosted().drop(machine);
        hosted().tell(TarvVMDidStopNotification, id, failed);
    });
}

} // namespace

void tarvhv_set_log_fd(int fd)
{
    display_set_log_fd(fd);
}

void tarvhv_set_supervisor(const char *path)
{
    hosted().supervisor = path ? path : "";
}

void tarvhv_set_observer(tarvhv_observer observer)
{
    hosted().observer = std::move(observer);
}

int TarvHVStartVM(const char *id, int32_t options)
{
    if (platform_host_is_arm64() != 1) {
        errno = ENOSYS;
        return -1;
    }
    Hosted &all = hosted();
    if (std::any_of(all.machines.begin(), all.machines.end(),
                    [id](const auto &each) { return strcasecmp(each->id().c_str(), id) == 0; })) {
        errno = EALREADY;
        return -1;
    }
    if (all.supervisor.empty()) {
        errno = ENOENT;
        return -1;
    }
    std::unique_ptr<HostedMachine> machine =
        HostedMachine::start({all.supervisor, id, start_mode_nearest(options), display_log_fd()});
    if (!machine)
        return -1;
    watch(machine.get());
    all.machines.push_back(std::move(machine));
    return 0;
}

unsigned TarvHVGetNumberOfVMsRunning()
{
    return unsigned(hosted().machines.size());
}

void tarvhv_end_vms()
{
    for (const auto &machine : hosted().machines)
        machine->end();
}
