#include "platform/kvm.h"

#include "platform/owners.h"
#include "platform/unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#if defined(__x86_64__)

namespace {

// A /dev/kvm that opens may be an emulation far slower than QEMU's own: the flag tells.
bool processor_has_flag()
{
    const FileOwner stream(std::fopen("/proc/cpuinfo", "re"));
    char line[8192];
    while (stream && std::fgets(line, sizeof line, stream.get()) != nullptr)
        if (std::strncmp(line, "flags", 5) == 0)
            return std::strstr(line, " vmx") != nullptr || std::strstr(line, " svm") != nullptr;
    return false;
}

} // namespace

#else

static bool processor_has_flag()
{
    return true; // no flag to ask for here: the device is there or not
}

#endif

int platform_kvm_check()
{
    if (!processor_has_flag()) {
        errno = ENOTSUP;
        return -1;
    }
    const UniqueFd device(open("/dev/kvm", O_RDWR | O_CLOEXEC));
    return device ? 0 : -1;
}
