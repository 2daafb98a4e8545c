#include "platform/host.h"

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/sysctl.h>
#include <type_traits>

namespace {

struct Releaser
{
    void operator()(const void *object) const { CFRelease(object); }
};
// An object of Core Foundation that is ours to release.
template <typename Reference>
using Owner = std::unique_ptr<std::remove_pointer_t<Reference>, Releaser>;

using Dictionary = Owner<CFDictionaryRef>;
using Text = Owner<CFStringRef>;

// A dictionary of the configuration store; null with errno EFAULT when there is no store, null with
// `missing` when there is no such dictionary.
Dictionary read_store(CFStringRef key, int missing)
{
    const Owner<SCDynamicStoreRef> store(
        SCDynamicStoreCreate(nullptr, CFSTR("ctl"), nullptr, nullptr));
    if (!store) {
        errno = EFAULT;
        return nullptr;
    }
    Owner<CFPropertyListRef> value(SCDynamicStoreCopyValue(store.get(), key));
    if (!value || CFGetTypeID(value.get()) != CFDictionaryGetTypeID()) {
        errno = missing;
        return nullptr;
    }
    return Dictionary(static_cast<CFDictionaryRef>(value.release()));
}

// An entry of a dictionary when it is of a type; it lives as long as the dictionary.
template <typename Reference>
Reference entry_of(CFDictionaryRef dictionary, CFStringRef key, CFTypeID type)
{
    const void *value = CFDictionaryGetValue(dictionary, key);
    if (value == nullptr || CFGetTypeID(value) != type)
        return nullptr;
    return static_cast<Reference>(value);
}

bool copy_text(CFStringRef text, char *buffer, size_t size)
{
    return CFStringGetCString(text, buffer, CFIndex(size), kCFStringEncodingUTF8);
}

} // namespace

int platform_host_is_arm64()
{
    if (const char *answer = std::getenv("TARV_HOST_ARM64"); answer != nullptr && *answer != '\0')
        return std::strcmp(answer, "0") != 0;
    int value = 0;
    size_t size = sizeof value;
    if (sysctlbyname("hw.optional.arm64", &value, &size, nullptr, 0) != 0)
        return errno == ENOENT ? 0 : -1; // other processors do not have the name
    return value != 0;
}

const char *platform_build_name()
{
#if defined(__aarch64__)
    return "arm64";
#else
    return "intel";
#endif
}

const char *platform_primary_interface()
{
    static thread_local char name[64];
    const Dictionary global = read_store(CFSTR("State:/Network/Global/IPv4"), ENOPROTOOPT);
    if (!global)
        return nullptr;
    const auto primary =
        entry_of<CFStringRef>(global.get(), CFSTR("PrimaryInterface"), CFStringGetTypeID());
    if (primary != nullptr && copy_text(primary, name, sizeof name))
        return name;
    errno = ENOPROTOOPT;
    return nullptr;
}

in_addr_t platform_interface_address(const char *interface)
{
    const Text name(CFStringCreateWithCString(nullptr, interface, kCFStringEncodingUTF8));
    const Text key(name ? CFStringCreateWithFormat(nullptr, nullptr,
                                                   CFSTR("State:/Network/Interface/%@/IPv4"),
                                                   name.get())
                        : nullptr);
    if (!key) {
        errno = EFAULT;
        return INADDR_NONE;
    }
    const Dictionary state = read_store(key.get(), EFAULT);
    if (!state)
        return INADDR_NONE;
    const auto addresses =
        entry_of<CFArrayRef>(state.get(), CFSTR("Addresses"), CFArrayGetTypeID());
    if (addresses == nullptr || CFArrayGetCount(addresses) == 0) {
        errno = ENOPROTOOPT;
        return INADDR_NONE;
    }
    char text[32];
    const void *first = CFArrayGetValueAtIndex(addresses, 0);
    if (CFGetTypeID(first) != CFStringGetTypeID() ||
        !copy_text(static_cast<CFStringRef>(first), text, sizeof text))
        return INADDR_NONE;
    return inet_addr(text);
}
