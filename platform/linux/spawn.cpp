#include "platform/posix/child_stdio.h"
#include "platform/process.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

namespace {

class FileActions
{
public:
    FileActions() { m_error = posix_spawn_file_actions_init(&m_actions); }
    ~FileActions() { posix_spawn_file_actions_destroy(&m_actions); }
    FileActions(const FileActions &) = delete;
    FileActions &operator=(const FileActions &) = delete;

    // The first error of any step is kept.
    void add(int result)
    {
        if (m_error == 0)
            m_error = result;
    }
    posix_spawn_file_actions_t *get() { return &m_actions; }
    int error() const { return m_error; }

private:
    posix_spawn_file_actions_t m_actions;
    int m_error = 0;
};

void add_stdio(FileActions &actions, const ChildStdio &stdio)
{
    for (int target = 0; target < 3; target++) {
        if (stdio.source(target) >= 0)
            actions.add(
                posix_spawn_file_actions_adddup2(actions.get(), stdio.source(target), target));
        else
            actions.add(posix_spawn_file_actions_addopen(actions.get(), target, "/dev/null",
                                                         target == 0 ? O_RDONLY : O_WRONLY, 0644));
    }
}

} // namespace

pid_t platform_spawn(const platform_launch &launch)
{
    ChildStdio stdio;
    if (!stdio.prepare(launch))
        return -1;
    FileActions actions;
    if (launch.dirfd != AT_FDCWD)
        actions.add(posix_spawn_file_actions_addfchdir_np(actions.get(), launch.dirfd));
    add_stdio(actions, stdio);
    actions.add(posix_spawn_file_actions_addclosefrom_np(actions.get(), 3));

    pid_t pid = -1;
    int error = actions.error();
    if (error == 0)
        error = posix_spawn(&pid, launch.path, actions.get(), nullptr, launch.argv,
                            launch.envp != nullptr ? launch.envp : environ);
    if (error == 0)
        return pid;
    errno = error;
    return -1;
}
