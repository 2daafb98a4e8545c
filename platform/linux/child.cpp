#include "platform/posix/child_start.h"

#include "platform/linux/child_fork.h"
#include "platform/posix/child_stdio.h"
#include "platform/process.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>

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

    void place(const ChildLaunch &launch, const ChildStdio &stdio)
    {
        if (launch.directory != AT_FDCWD)
            add(posix_spawn_file_actions_addfchdir_np(&m_actions, launch.directory));
        for (int target = 0; target < 3; target++) {
            if (stdio.source(target) >= 0)
                add(posix_spawn_file_actions_adddup2(&m_actions, stdio.source(target), target));
            else
                add(posix_spawn_file_actions_addopen(&m_actions, target, "/dev/null",
                                                     target == 0 ? O_RDONLY : O_WRONLY, 0644));
        }
        add(posix_spawn_file_actions_addclosefrom_np(&m_actions, 3));
    }
    void set_attributes(const ChildLaunch &launch)
    {
        sigset_t signals;
        short flags = launch.new_session ? POSIX_SPAWN_SETSID : 0;
        if (launch.signals == ChildSignals::standard) {
            flags |= POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
            sigfillset(&signals);
            add(posix_spawnattr_setsigdefault(&m_attributes, &signals));
            sigemptyset(&signals);
            add(posix_spawnattr_setsigmask(&m_attributes, &signals));
        }
        add(posix_spawnattr_setflags(&m_attributes, flags));
    }
    // The pid, or -1 with errno set.
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

    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
    int m_error = 0;
};

} // namespace

bool child_start(const ChildLaunch &launch, ChildStart *started)
{
    // posix_spawn starts a program without a copy of this process's tables, but can do neither of
    // these between the two.
    if (launch.life == ChildLife::bound || launch.held || !launch.kept.empty())
        return child_fork(launch, started);
    ChildStdio stdio;
    if (!stdio.prepare(launch))
        return false;
    Spawn spawn;
    spawn.place(launch, stdio);
    spawn.set_attributes(launch);
    started->pid = spawn.start(launch);
    return started->pid > 0;
}
