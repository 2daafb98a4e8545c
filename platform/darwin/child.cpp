#include "platform/posix/child_start.h"
#include "platform/posix/child_stdio.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace {

// The actions and attributes of a launch. The first error of any step is kept.
class Spawn
{
public:
    Spawn()
    {
        add(posix_spawn_file_actions_init(&m_actions));
        add(posix_spawnattr_init(&m_attributes));
    }
    ~Spawn()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    Spawn(const Spawn &) = delete;
    Spawn &operator=(const Spawn &) = delete;

    void setAttributes(const ChildLaunch &launch)
    {
        // No descriptor is inherited but those that an action names.
        short flags = POSIX_SPAWN_CLOEXEC_DEFAULT;
        if (launch.new_session)
            flags |= POSIX_SPAWN_SETSID;
        // Descriptors are only kept by children that have standard signals.
        if (launch.signals == ChildSignals::standard || !launch.kept.empty()) {
            sigset_t signals;
            flags |= POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
            sigfillset(&signals);
            add(posix_spawnattr_setsigdefault(&m_attributes, &signals));
            sigemptyset(&signals);
            add(posix_spawnattr_setsigmask(&m_attributes, &signals));
        }
        add(posix_spawnattr_setflags(&m_attributes, flags));
        if (launch.directory != AT_FDCWD)
            add(posix_spawn_file_actions_addfchdir_np(&m_actions, launch.directory));
        for (const int fd : launch.kept)
            add(fd < 3 ? EINVAL : posix_spawn_file_actions_addinherit_np(&m_actions, fd));
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
    pid_t start(const ChildLaunch &launch)
    {
        const ChildTexts texts(launch);
        pid_t pid = -1;
        if (m_error == 0)
            m_error = posix_spawn(&pid, launch.program.c_str(), &m_actions, &m_attributes,
                                  texts.argv(), texts.envp());
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

bool child_start(const ChildLaunch &launch, ChildStart *started)
{
    // Nothing here ends a child with its parent, or holds it between its start and its program.
    if (launch.life == ChildLife::bound || launch.held) {
        errno = ENOTSUP;
        return false;
    }
    ChildStdio stdio;
    if (!stdio.prepare(launch))
        return false;
    Spawn spawn;
    spawn.setAttributes(launch);
    for (int target = 0; target < 3; target++)
        spawn.connect(stdio.source(target), target);
    started->pid = spawn.start(launch);
    return started->pid > 0;
}
