// Children that posix_spawn has no means for.
#pragma once

#include "platform/posix/child_start.h"

// A child that is bound to this thread, held, or keeps descriptors. False with errno set.
bool child_fork(const ChildLaunch &launch, ChildStart *started);
