// The words of a VM's status, as the application's texts have them.
#pragma once

#include "tarvhv/cli2/vm_status.h"

#include <QLatin1String>

inline QLatin1String statusWord(VmStatus status)
{
    return QLatin1String(vm_status_word(status));
}
