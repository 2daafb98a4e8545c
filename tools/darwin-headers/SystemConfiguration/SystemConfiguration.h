// The declarations of the configuration store that platform/darwin uses, for tools/check-darwin
// alone: a real build has the system's own.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const struct __SCDynamicStore *SCDynamicStoreRef;
typedef struct SCDynamicStoreContext SCDynamicStoreContext;
typedef void (*SCDynamicStoreCallBack)(SCDynamicStoreRef store, CFArrayRef keys, void *info);

SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext *context);
CFPropertyListRef SCDynamicStoreCopyValue(SCDynamicStoreRef store, CFStringRef key);

#ifdef __cplusplus
}
#endif
