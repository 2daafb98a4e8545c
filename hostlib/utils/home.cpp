#include "hostlib/utils/home_path.h"
#include "hostlib/utils/utils.h"

#include "platform/unique_fd.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

namespace {

// The directory that the environment or the password database names; never released.
const char *find_home()
{
    const char *home = geteuid() != 0 ? std::getenv("HOME") : nullptr;
    if (home == nullptr) {
        const struct passwd *entry = getpwuid(getuid());
        home = entry != nullptr ? entry->pw_dir : "";
    }
    return strdup(home);
}

} // namespace

const char *home_dir()
{
    static const char *const dir = find_home();
    return dir != nullptr ? dir : "";
}

int home_fd()
{
    static std::atomic<int> home = -1;
    int fd = home;
    if (fd != -1)
        return fd;
    // What could not be opened is tried again with the next call.
    UniqueFd opened(open(home_dir(), O_RDONLY | O_CLOEXEC));
    if (!opened || home.compare_exchange_strong(fd, opened.get()))
        return opened.release();
    return fd;
}

HomePath home_path(const char *path)
{
    if (path[0] != '~')
        return {AT_FDCWD, path};
    return {home_fd(), path[1] != '\0' ? path + 2 : path + 1};
}
