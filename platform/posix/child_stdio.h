// The three standard descriptors of a child, put where no copy overwrites another's source.
#pragma once

#include "platform/child.h"
#include "platform/unique_fd.h"

// Where descriptors 0, 1 and 2 of a child come from: -1 stands for /dev/null. A source is either
// the target itself or above 2, so the three can be put in place in any order.
class ChildStdio
{
public:
    // False with errno set.
    bool prepare(const ChildLaunch &launch);
    int source(int target) const { return m_source[target]; }

private:
    int m_source[3] = {-1, -1, -1};
    UniqueFd m_moved[3];
};
