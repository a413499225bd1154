// GSURL_apple.mm - the file-system layer over Foundation's NSURL and NSFileManager.
//
// Compiled with ARC. A handle is an NSURL whose reference crosses into C++ with a bridged cast:
// __bridge_retained for the Create functions (the caller owns the result), plain __bridge for
// the arguments (borrowed for the call). GSIdRetain and GSIdRelease are CFRetain and CFRelease,
// which are valid on every Foundation object. Nothing here throws into the caller: Foundation's
// URL and file operations used here answer nil or NO, with an NSError, rather than raise for
// the inputs they receive; every dictionary is built without nil values.
//
// Dates cross as text: a GSDate is written "%Y %m %d %H %M %S %s" and parsed by one date
// formatter (pattern "yyyy MM dd HH mm ss SSS", GMT); a text it refuses (no calendar date) gives
// no platform date, and that date is then not set. The formatter also carries the POSIX locale,
// so that a user's calendar or numbering system cannot change how the fixed pattern is read.
#import <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include "storage/GSURL.h"

#include <cmath>
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

// The platform's error text, when there is an error and a place for it.
void GSSetDetail(GSString* detail, NSError* error) {
    if (detail && error) *detail = GSStringFromPlatform(error.localizedDescription);
}

// One resource value of the item, or nil when it cannot be read.
id GSResourceValue(NSURL* url, NSString* key) {
    id value = nil;
    return [url getResourceValue:&value forKey:key error:nullptr] ? value : nil;
}

// A boolean resource value: 1, 0, or -1 when it cannot be read.
int GSResourceFlag(NSURL* url, NSString* key) {
    id value = GSResourceValue(url, key);
    if (![value isKindOfClass:[NSNumber class]]) return -1;
    return [(NSNumber*)value boolValue] ? 1 : 0;
}

// The process-wide formatter of dates going to the platform, made on first use.
NSDateFormatter* GSPlatformDateFormatter() {
    static NSDateFormatter* formatter = [] {
        NSDateFormatter* made = [[NSDateFormatter alloc] init];
        [made setLocale:[NSLocale localeWithLocaleIdentifier:@"en_US_POSIX"]];
        [made setDateFormat:@"yyyy MM dd HH mm ss SSS"];
        [made setTimeZone:[NSTimeZone timeZoneForSecondsFromGMT:0]];
        return made;
    }();
    return formatter;
}

// The platform date of `date` read as UTC, or nil when the formatter refuses it.
NSDate* GSPlatformDate(const GSDate& date) {
    GSString text;
    date.writeToStringWithFormat(GSString("%Y %m %d %H %M %S %s"), &text);
    NSString* platformText = GSNewPlatformString(text);
    return platformText ? [GSPlatformDateFormatter() dateFromString:platformText] : nil;
}

// A platform date at millisecond precision: the fraction f of its second becomes
// floor(f * 1000 + 0.49) milliseconds, 1000 carrying into the next second.
GSDate GSDateFromPlatform(NSDate* date) {
    NSTimeInterval interval = date.timeIntervalSince1970;
    double seconds = std::floor(interval);
    long milliseconds = static_cast<long>(std::floor((interval - seconds) * 1000 + 0.49));
    if (milliseconds >= 1000) {
        milliseconds = 0;
        seconds += 1;
    }
    GSDate result(1, 1, 1970, 0, 0, 0, static_cast<int>(milliseconds));
    result.addSeconds(static_cast<long>(seconds));
    return result;
}

// Reads a date resource into `working` when it can be read; `working` keeps its value else.
void GSReadDate(NSURL* url, NSString* key, GSDate* working) {
    id value = GSResourceValue(url, key);
    if ([value isKindOfClass:[NSDate class]]) *working = GSDateFromPlatform((NSDate*)value);
}

} // namespace

void GSIdRetain(const void* object) {
    if (object) CFRetain(object);
}

void GSIdRelease(const void* object) {
    if (object) CFRelease(object);
}

long GSIdGetRetainCount(const void* object) {
    return object ? static_cast<long>(CFGetRetainCount(object)) : 0;
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

short GSURLResolveLinkOrAlias(const void* url, int options, GSIdPointer* resolved,
                              short* isFolder) {
    NSURL* start = GSURLObject(url);
    if (!start) return 1;
    if (resolved) *resolved = nullptr;
    NSURL* result = start.URLByResolvingSymlinksInPath;
    if (!result) return 0;
    NSError* error = nil;
    if (GSResourceFlag(result, NSURLIsAliasFileKey) == 1) {
        NSData* bookmark = [NSURL bookmarkDataWithContentsOfURL:result error:&error];
        if (bookmark) {
            NSURLBookmarkResolutionOptions how = 0;
            if (options & 1) how |= NSURLBookmarkResolutionWithoutMounting;
            if (options & 2) how |= NSURLBookmarkResolutionWithoutUI;
            BOOL stale = NO;
            result = [NSURL URLByResolvingBookmarkData:bookmark
                                               options:how
                                         relativeToURL:nil
                                   bookmarkDataIsStale:&stale
                                                 error:&error];
        }
    }
    if (error || !result || [result isEqual:start]) return 0;
    if (resolved) resolved->attach((__bridge void*)result);
    if (isFolder) {
        *isFolder = 0;
        if (GSResourceFlag(result, NSURLIsDirectoryKey) == 1) *isFolder = 1;
    }
    return 0;
}

short GSURLFillFileState(const void* url, GSFileState* state) {
    if (!state) return 1;
    state->valid = 0;
    NSURL* item = GSURLObject(url);
    if (!item || ![item checkResourceIsReachableAndReturnError:nullptr]) return 1;

    // One working date, not reset between the three: a date that cannot be read takes the one
    // read before it.
    GSDate working(0);
    GSReadDate(item, NSURLContentAccessDateKey, &working);
    state->accessDate = working;
    GSReadDate(item, NSURLCreationDateKey, &working);
    state->creationDate = working;
    GSReadDate(item, NSURLContentModificationDateKey, &working);
    state->modificationDate = working;

    // A flag that cannot be read keeps its bit.
    unsigned char flags = state->flags;
    int hidden = GSResourceFlag(item, NSURLIsHiddenKey);
    if (hidden == 1) flags |= GSFileState::kHidden;
    if (hidden == 0) flags &= ~GSFileState::kHidden;
    flags &= ~(GSFileState::kFolder | GSFileState::kPackage);
    if (GSResourceFlag(item, NSURLIsDirectoryKey) == 1) flags |= GSFileState::kFolder;
    if (GSResourceFlag(item, NSURLIsPackageKey) == 1)
        flags |= GSFileState::kPackage | GSFileState::kFolder;
    int locked = GSResourceFlag(item, NSURLIsUserImmutableKey);
    if (locked == 1) flags |= GSFileState::kLocked;
    if (locked == 0) flags &= ~GSFileState::kLocked;
    flags &= ~GSFileState::kCleared;
    state->flags = flags;
    state->valid = 1;
    return 0;
}

short GSURLSetFileState(void* url, const GSFileState& state, GSString* detail) {
    NSURL* item = GSURLObject(url);
    if (!item || ![item checkResourceIsReachableAndReturnError:nullptr]) return 1;
    NSMutableDictionary* values = [NSMutableDictionary dictionary];
    if (NSDate* date = GSPlatformDate(state.accessDate))
        [values setObject:date forKey:NSURLContentAccessDateKey];
    if (NSDate* date = GSPlatformDate(state.creationDate))
        [values setObject:date forKey:NSURLCreationDateKey];
    if (NSDate* date = GSPlatformDate(state.modificationDate))
        [values setObject:date forKey:NSURLContentModificationDateKey];
    [values setObject:[NSNumber numberWithBool:(state.flags & GSFileState::kHidden) != 0]
               forKey:NSURLIsHiddenKey];
    [values setObject:[NSNumber numberWithBool:(state.flags & GSFileState::kLocked) != 0]
               forKey:NSURLIsUserImmutableKey];
    NSError* error = nil;
    if ([item setResourceValues:values error:&error]) return 0;
    GSSetDetail(detail, error);
    return 1;
}

short GSURLReplaceWithURL(void* target, void* replacement, const GSString& backupName,
                          GSString* detail) {
    NSURL* old = GSURLObject(target);
    NSURL* next = GSURLObject(replacement);
    if (!old || !next) return 1;
    NSString* backup = nil;
    if (!backupName.isEmpty()) {
        backup = GSNewPlatformString(backupName);
        if (!backup) return 1;
    }
    NSError* error = nil;
    if ([[NSFileManager defaultManager]
            replaceItemAtURL:old
               withItemAtURL:next
              backupItemName:backup
                     options:NSFileManagerItemReplacementWithoutDeletingBackupItem
            resultingItemURL:nullptr
                       error:&error])
        return 0;
    GSSetDetail(detail, error);
    return 1;
}

short GSURLMoveToURL(void* from, void* to, GSString* detail) {
    NSURL* source = GSURLObject(from);
    NSURL* destination = GSURLObject(to);
    if (!source || !destination) return 1;
    NSError* error = nil;
    if ([[NSFileManager defaultManager] moveItemAtURL:source toURL:destination error:&error])
        return 0;
    GSSetDetail(detail, error);
    return 1;
}

short GSURLRemove(void* url, GSString* detail) {
    NSURL* item = GSURLObject(url);
    if (!item) return 1;
    NSError* error = nil;
    if ([[NSFileManager defaultManager] removeItemAtURL:item error:&error]) return 0;
    GSSetDetail(detail, error);
    return 1;
}
