// GSString_apple.mm - GSString to and from the platform's strings (Apple platforms only).
//
// Compiled with ARC. The bytes cross as Windows Latin 1 (tag 0), UTF-8 (tag 100) or Mac Roman
// (every other tag, 2, 3 and 101 included); back from the platform always as UTF-8. The Create
// functions hand their result to the caller, who releases it.
#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include "text/GSString.h"

#include <vector>

CFStringRef GSString::createCFStringRef() const {
    CFStringEncoding platformEncoding = kCFStringEncodingMacRoman;
    if (encoding == kWindows)
        platformEncoding = kCFStringEncodingWindowsLatin1;
    else if (encoding == kUTF8)
        platformEncoding = kCFStringEncodingUTF8;
    const char* bytes = getConstAddr();
    return CFStringCreateWithBytes(kCFAllocatorDefault,
                                   reinterpret_cast<const UInt8*>(bytes ? bytes : ""),
                                   bytes ? getLength() : 0, platformEncoding, false);
}

NSString* GSString::createNSString() const {
    return (__bridge_transfer NSString*)createCFStringRef();
}

GSString::GSString(CFStringRef text) : GSString() {
    if (!text) return;
    CFIndex units = CFStringGetLength(text);
    if (units == 0) return;
    CFIndex capacity = 3 * units + 2;
    std::vector<char> buffer(static_cast<size_t>(capacity));
    if (CFStringGetCString(text, buffer.data(), capacity, kCFStringEncodingUTF8))
        init(buffer.data(), -1, kUTF8);
}
