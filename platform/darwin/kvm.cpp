#include "platform/kvm.h"

#include <cerrno>

int platform_kvm_check()
{
    errno = ENOTSUP; // KVM is Linux's own
    return -1;
}
