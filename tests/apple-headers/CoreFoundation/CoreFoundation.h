// CoreFoundation.h - the Core Foundation items our Apple sources use, declared as Apple's SDK
// declares them, for the Linux syntax check only (syntax-check.sh). Never used by a build.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char UInt8;
typedef signed long CFIndex;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFData* CFDataRef;

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);

#ifdef __cplusplus
}
#endif
