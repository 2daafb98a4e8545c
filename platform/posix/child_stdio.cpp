#include "platform/posix/child_stdio.h"

#include <fcntl.h>

bool ChildStdio::prepare(const ChildLaunch &launch)
{
    const int given[] = {launch.in, launch.out, launch.err};
    for (int target = 0; target < 3; target++) {
        m_source[target] = given[target];
        if (given[target] < 0 || given[target] > 2 || given[target] == target)
            continue;
        m_moved[target].reset(fcntl(given[target], F_DUPFD_CLOEXEC, 3));
        m_source[target] = m_moved[target].get();
        if (!m_moved[target])
            return false;
    }
    return true;
}
