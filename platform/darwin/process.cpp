#include "platform/process.h"

#include <cerrno>
#include <crt_externs.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

enum class Found
{
    yes,
    no,
    failed
};

// The kernel's record of a process. It answers nothing for a process that there is not.
Found find_record(pid_t pid, struct kinfo_proc &record)
{
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    size_t size = sizeof record;
    if (sysctl(name, 4, &record, &size, nullptr, 0) != 0)
        return Found::failed;
    return size == 0 ? Found::no : Found::yes;
}

} // namespace

int platform_process_table()
{
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, getpid()};
    size_t size = 0;
    return sysctl(name, 4, nullptr, &size, nullptr, 0);
}

int platform_process_state(pid_t pid)
{
    struct kinfo_proc record = {};
    switch (find_record(pid, record)) {
    case Found::yes:
        return record.kp_proc.p_stat; // the codes of platform/process.h are the kernel's
    case Found::no:
        return 0;
    default:
        return -1;
    }
}

int64_t platform_process_start(pid_t pid)
{
    struct kinfo_proc record = {};
    const Found found = find_record(pid, record);
    if (found == Found::no)
        errno = ESRCH;
    return found == Found::yes ? int64_t(record.kp_proc.p_starttime.tv_sec) : -1;
}

uint64_t platform_process_identity(pid_t pid)
{
    struct kinfo_proc record = {};
    if (find_record(pid, record) != Found::yes)
        return 0;
    const struct timeval &start = record.kp_proc.p_starttime;
    return uint64_t(start.tv_sec) * 1000000 + uint64_t(start.tv_usec);
}

pid_t platform_peer_pid(int fd)
{
    pid_t pid = -1;
    socklen_t size = sizeof pid;
    return getsockopt(fd, SOL_LOCAL, LOCAL_PEERPID, &pid, &size) == 0 ? pid : -1;
}

int platform_peer_uid(int fd, uid_t *uid)
{
    gid_t group;
    return getpeereid(fd, uid, &group);
}

bool platform_program_has_rights(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && (status.st_mode & S_ISUID) != 0;
}

char **platform_environment()
{
    return *_NSGetEnviron();
}

const char *platform_user_name(uid_t uid)
{
    const struct passwd *entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : nullptr;
}
