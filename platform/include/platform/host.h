// The machine that this runs on, and where the product's parts lie on it.
#pragma once

#include <netinet/in.h>

// 1 on an arm64 machine (also under translation), 0 on another, -1 when unknown. The environment
// variable TARV_HOST_ARM64 (0 or 1) substitutes the answer for tests.
int platform_host_is_arm64();

// The processor that this program was built for, as it stands in names of files: "intel" or
// "arm64".
const char *platform_build_name();

// The interface of the default route, as a text valid until the next call on this thread; null
// with errno ENOPROTOOPT (none) or EFAULT.
const char *platform_primary_interface();
// The first IPv4 address of an interface, network byte order; all ones with errno set: ENOPROTOOPT
// when it has none, EFAULT when it can't be asked.
in_addr_t platform_interface_address(const char *interface);

// Absolute paths at which parts of the product are installed. The environment variable
// TARV_SUPPORT_DIR moves the support directory; tests put others in the place of any (null: as
// before).
enum class PlatformPath
{
    pkgutil,
    vlaunchd_socket,
    support_dir
};
const char *platform_path(PlatformPath which);
void platform_set_path(PlatformPath which, const char *path);
