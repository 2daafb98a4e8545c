#include "platform/posix/child_stdio.h"
#include "platform/process.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace {

// The actions and attributes of a launch. The first error of any step is kept.
class Launch
{
public:
    Launch()
    {
        add(posix_spawn_file_actions_init(&m_actions));
        add(posix_spawnattr_init(&m_attributes));
        // No descriptor is inherited but those that an action below names.
        add(posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_CLOEXEC_DEFAULT));
    }
    ~Launch()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    Launch(const Launch &) = delete;
    Launch &operator=(const Launch &) = delete;

    void runIn(int dirfd)
    {
        if (dirfd != AT_FDCWD)
            add(posix_spawn_file_actions_addfchdir_np(&m_actions, dirfd));
    }
    void connect(int source, int target)
    {
        if (source == target)
            add(posix_spawn_file_actions_addinherit_np(&m_actions, target));
        else if (source >= 0)
            add(posix_spawn_file_actions_adddup2(&m_actions, source, target));
        else
            add(posix_spawn_file_actions_addopen(&m_actions, target, "/dev/null",
                                                 target == 0 ? O_RDONLY : O_WRONLY, 0644));
    }
    // The child's pid, or -1 with errno set.
    pid_t start(const platform_launch &launch)
    {
        pid_t pid = -1;
        char *const *environment = launch.envp != nullptr ? launch.envp : platform_environment();
        if (m_error == 0)
            m_error =
                posix_spawn(&pid, launch.path, &m_actions, &m_attributes, launch.argv, environment);
        if (m_error == 0)
            return pid;
        errno = m_error;
        return -1;
    }

private:
    void add(int result)
    {
        if (m_error == 0)
            m_error = result;
    }

    posix_spawn_file_actions_t m_actions = nullptr;
    posix_spawnattr_t m_attributes = nullptr;
    int m_error = 0;
};

} // namespace

pid_t platform_spawn(const platform_launch &launch)
{
    ChildStdio stdio;
    if (!stdio.prepare(launch))
        return -1;
    Launch child;
    child.runIn(launch.dirfd);
    for (int target = 0; target < 3; target++)
        child.connect(stdio.source(target), target);
    return child.start(launch);
}

pid_t platform_spawn_bound(const platform_launch &, const int *, int)
{
    // Nothing here ends a child with its parent.
    errno = ENOTSUP;
    return -1;
}
