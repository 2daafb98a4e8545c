#include "hostlib/utils/utils.h"

#include "platform/host.h"

in_addr_t inet_prim_addr()
{
    const char *interface = platform_primary_interface();
    return interface != nullptr ? platform_interface_address(interface) : INADDR_NONE;
}
