// CoreFoundation.h - the Core Foundation items our Apple sources use, declared as Apple's SDK
// declares them, for the Linux syntax check only (syntax-check.sh). Never used by a build.
#pragma once

extern "C" {

typedef unsigned char UInt8;
typedef unsigned int UInt32;
typedef unsigned char Boolean;
typedef signed long CFIndex;
typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __attribute__((objc_bridge(NSString))) __CFString* CFStringRef;
typedef UInt32 CFStringEncoding;

enum CFStringBuiltInEncodings : CFStringEncoding {
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingWindowsLatin1 = 0x0500,
    kCFStringEncodingUTF8 = 0x08000100,
};

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFIndex CFGetRetainCount(CFTypeRef cf);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFIndex CFStringGetLength(CFStringRef theString);
Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);
}
