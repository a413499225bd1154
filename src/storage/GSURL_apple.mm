// GSURL_apple.mm - the file-system layer over Foundation's NSURL.
//
// Compiled with ARC. A handle is an NSURL whose reference crosses into C++ with a bridged cast:
// __bridge_retained for the Create functions (the caller owns the result), plain __bridge for
// the arguments (borrowed for the call). GSIdRetain and GSIdRelease are CFRetain and CFRelease,
// which are valid on every Foundation object. Nothing here throws into the caller: Foundation's
// URL operations used here answer nil rather than raise for the inputs they receive.
#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include "GSURL.h"

#include <cstring>

namespace {

// The URL behind a handle, or nil for null and for anything that is not a URL.
NSURL* GSURLObject(const void* url) {
    if (!url) return nil;
    id object = (__bridge id)url;
    return [object isKindOfClass:[NSURL class]] ? (NSURL*)object : nil;
}

// A new reference for the caller (null for nil).
void* GSURLHandOut(NSURL* url) {
    return url ? (__bridge_retained void*)url : nullptr;
}

// A platform string from the framework's bytes; an empty text for the null string, nil when
// the bytes are not text in their encoding.
NSString* GSNewPlatformString(const GSString& text) {
    return text.isEmpty() ? @"" : text.createNSString();
}

// The framework's string from a platform string (UTF-8); null when empty or refused.
GSString GSStringFromPlatform(NSString* text) {
    return GSString((__bridge CFStringRef)text);
}

} // namespace

void GSIdRetain(const void* object) {
    if (object) CFRetain(object);
}

void GSIdRelease(const void* object) {
    if (object) CFRelease(object);
}

void* GSURLCreateWithFilePath(const GSString& path, short isDirectory, short resolveFolder) {
    if (path.isEmpty()) return nullptr;
    NSString* text = GSNewPlatformString(path);
    if (!text) return nullptr;
    NSURL* url = nil;
    if (std::strncmp(path.getConstAddr(), "file://", 7) == 0)
        url = [[NSURL alloc] initWithString:text];
    else
        url = [[NSURL alloc] initFileURLWithPath:text isDirectory:isDirectory == 1];
    if (url && resolveFolder) {
        // Only the folder is resolved: a link in the last place stays the item it names.
        NSString* last = url.lastPathComponent;
        NSURL* folder = url.URLByDeletingLastPathComponent.URLByResolvingSymlinksInPath;
        if (folder && last.length > 0) {
            NSURL* resolved = [folder URLByAppendingPathComponent:last];
            if (resolved) url = resolved;
        }
    }
    return GSURLHandOut(url);
}

void* GSURLCreateByAppending(const void* url, const GSString& component) {
    NSURL* base = GSURLObject(url);
    if (!base || component.isEmpty()) return nullptr;
    NSString* text = GSNewPlatformString(component);
    return text ? GSURLHandOut([base URLByAppendingPathComponent:text]) : nullptr;
}

void* GSURLCreateByDeletingLastPathComponent(void* url) {
    NSURL* base = GSURLObject(url);
    return base ? GSURLHandOut(base.URLByDeletingLastPathComponent) : nullptr;
}

void* GSURLCreateParentURL(void* url) {
    NSURL* base = GSURLObject(url);
    if (!base) return nullptr;
    NSString* last = base.lastPathComponent;
    if (last.length == 0 || [last isEqualToString:@"/"]) return nullptr;
    return GSURLHandOut(base.URLByDeletingLastPathComponent);
}

short GSURLIsRoot(const void* url) {
    NSURL* base = GSURLObject(url);
    return base && [base.lastPathComponent isEqualToString:@"/"] ? 1 : 0;
}

GSString GSURLGetPathname(const void* url) {
    NSURL* base = GSURLObject(url);
    if (!base) return GSString();
    GSString path = GSStringFromPlatform(base.path);
    long length = path.getLength();
    if (length > 0 && path[length - 1] == '/') path.remove(length - 1, 1);
    return path;
}

GSString GSURLGetLastPathComponent(const void* url) {
    NSURL* base = GSURLObject(url);
    return base ? GSStringFromPlatform(base.lastPathComponent) : GSString();
}

short GSURLIsEqual(const void* a, const void* b) {
    NSURL* first = GSURLObject(a);
    NSURL* second = GSURLObject(b);
    if (!first && !second) return 1;
    return [first isEqual:second] ? 1 : 0;
}
