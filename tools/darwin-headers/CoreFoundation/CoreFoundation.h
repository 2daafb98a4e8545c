// The declarations of Core Foundation that platform/darwin uses, for tools/check-darwin alone: a
// real build has the system's own.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const void *CFTypeRef;
typedef const void *CFPropertyListRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef const struct __CFArray *CFArrayRef;
typedef unsigned long CFTypeID;
typedef long CFIndex;
typedef uint32_t CFStringEncoding;
typedef unsigned char Boolean;

enum
{
    kCFStringEncodingUTF8 = 0x08000100
};

CFStringRef __CFStringMakeConstantString(const char *text);
#define CFSTR(text) __CFStringMakeConstantString("" text "")

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeID CFStringGetTypeID(void);
CFTypeID CFDictionaryGetTypeID(void);
CFTypeID CFArrayGetTypeID(void);
const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key);
CFIndex CFArrayGetCount(CFArrayRef array);
const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char *text,
                                      CFStringEncoding encoding);
CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef options,
                                     CFStringRef format, ...);
Boolean CFStringGetCString(CFStringRef text, char *buffer, CFIndex size, CFStringEncoding encoding);

#ifdef __cplusplus
}
#endif
